/* Iterative refinement. Work, in entries of value_t, L = n * nb: 0 a copy of the right-hand sides (overwrite_rhs 1), else the residual;
   L the correction (the residual with overwrite_rhs 1 stands in x); then, for the extended form, L extended entries of solution and the
   scratch of the residual, 16-byte aligned. */
#include <cmath>
#include <cstdlib>

#include "solve/solve_internal.h"

/* What the steps of one run share. */
template <typename value_t>
struct refinement_run {
    const residual_matrix<value_t> *matrix;
    solve_input<value_t> correction_solve; /* residual -> correction */
    int64_t count;                         /* L */
    const value_t *rhs;
    value_t *solution, *residual, *correction;
    extended_of<value_t> *wide_solution, *scratch; /* null for plain residuals */
};

/* Extended entries start at an address that suits them; this many entries of value_t cover one of them and the alignment. */
template <typename value_t>
static constexpr int64_t wide_factor = static_cast<int64_t>(sizeof(extended_of<value_t>) / sizeof(value_t));

int64_t refinement_work_entries(int64_t n, int64_t nb, int64_t request)
{
    const int64_t count = bounded_product(n, nb);
    return request < 0 ? 2 * count + wide_factor<float> * (count + extended_scratch_entries(n) + 1) : 2 * count;
}

template <typename value_t>
static void start_run(const solve_input<value_t> *solve, const residual_matrix<value_t> *matrix, bool extended, value_t *work,
                      refinement_run<value_t> *run)
{
    using wide_t = extended_of<value_t>;
    const int64_t n = matrix->n, count = n * solve->nb;
    const bool overwrite = solve->overwrite_rhs == 1;
    run->matrix = matrix;
    run->count = count;
    run->rhs = overwrite ? work : solve->b;
    run->solution = overwrite ? solve->b : solve->x;
    run->residual = overwrite ? solve->x : work;
    run->correction = work + count;
    run->correction_solve = *solve;
    run->correction_solve.b = run->residual;
    run->correction_solve.x = run->correction;
    run->correction_solve.overwrite_rhs = 0;
    run->correction_solve.solve_step_code = 0;
    run->correction_solve.window_first = run->correction_solve.window_count = 0;
    run->wide_solution = run->scratch = nullptr;
    if (!extended) return;
    const uintptr_t address = reinterpret_cast<uintptr_t>(work + 2 * count), unit = alignof(wide_t);
    run->wide_solution = reinterpret_cast<wide_t *>((address + unit - 1) / unit * unit);
    run->scratch = run->wide_solution + count;
    for (int64_t i = 0; i < count; ++i) run->wide_solution[i] = wide_t(run->solution[i]);
}

template <typename value_t>
static double compute_residual(const refinement_run<value_t> *run)
{
    const int64_t nb = run->correction_solve.nb;
    if (run->wide_solution != nullptr) return extended_residual(run->matrix, nb, run->rhs, run->wide_solution, run->scratch, run->residual);
    return plain_residual(run->matrix, nb, run->rhs, run->solution, run->correction, run->residual);
}

/* Returns the sum of the moduli of the correction. */
template <typename value_t>
static double add_correction(const refinement_run<value_t> *run)
{
    if (run->wide_solution == nullptr) return add_vector(run->count, run->correction, run->solution);
    using real_t = real_of<value_t>;
    for (int64_t i = 0; i < run->count; ++i) {
        run->wide_solution[i] += extended_of<value_t>(run->correction[i]);
        if constexpr (is_complex_value<value_t>)
            run->solution[i] =
                value_t(static_cast<real_t>(run->wide_solution[i].real()), static_cast<real_t>(run->wide_solution[i].imag()));
        else
            run->solution[i] = static_cast<real_t>(run->wide_solution[i]);
    }
    return sum_of_moduli(run->count, run->correction);
}

/* After step k: does the loop go on? previous is the residual sum of the last step that contracted. */
static bool another_step(int64_t k, int64_t request, int64_t limit, double residual, double sum_rhs, double *previous, bool *contracted)
{
    *contracted = true; /* no test was failed */
    if (k == 2 && request == 0) return false;
    if (k == 1 && residual > sum_rhs) *previous = 2 * residual;
    if (k == limit) return false;
    if (residual < 0.9 * *previous) {
        *previous = residual;
        return true;
    }
    if (k < 4 && k < limit) return true;
    *contracted = false;
    return false;
}

template <typename value_t>
int64_t refine_solution(const solve_input<value_t> *solve, const residual_matrix<value_t> *matrix, int64_t request, double sum_rhs,
                        value_t *work, refinement_result *result)
{
    refinement_run<value_t> run;
    start_run(solve, matrix, request < 0, work, &run);
    const double sum_x = sum_of_moduli(run.count, run.solution);
    const bool relative = sum_rhs != 0 && sum_x != 0;
    const int64_t limit = request == INT64_MIN ? INT64_MAX : std::abs(request);
    double previous = sum_rhs;
    bool contracted = true, more = true;
    *result = {};
    while (more) {
        const int64_t k = ++result->steps;
        const double residual = compute_residual(&run);
        const int64_t failed = solution_step(&run.correction_solve);
        if (failed != 0) return failed;
        const double correction = add_correction(&run);
        result->residual = relative ? residual / sum_rhs : residual;
        result->correction = relative ? correction / sum_x : sum_x;
        if (!std::isfinite(residual) || !std::isfinite(correction)) return -112; /* no later step can mend this */
        more = another_step(k, request, limit, residual, sum_rhs, &previous, &contracted);
    }
    result->automatic_limit = request == 0 && result->steps == 2 ? 1 : 0;
    return contracted || result->correction <= 0.5 ? 0 : -112;
}

#define INSTANTIATE(V)                                                                                                                     \
    template int64_t refine_solution<V>(const solve_input<V> *, const residual_matrix<V> *, int64_t, double, V *, refinement_result *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
