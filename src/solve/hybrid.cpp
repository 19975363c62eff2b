/* Preconditioned iterations on several right-hand sides at once; each column has scalars of its own, products and solves run on all
   columns. Work in blocks of L = n * nb entries, then per column scalars: CG: residual, preconditioned residual, direction, product, the
   starting iterate. CGS: correction, residual, shadow residual, direction, q, u, product. */
#include "solve/solve_internal.h"

template <typename value_t>
struct column_scalars {
    value_t rho;
    double reference; /* squared norm that the convergence quantity is measured against; 1 where it would be 0 */
    bool done;        /* the residual of the column is exactly zero: nothing is left to do */
};

template <typename value_t>
struct hybrid_run {
    const residual_matrix<value_t> *matrix;
    solve_input<value_t> precondition; /* solves over its b */
    int64_t n, nb;
    value_t *block[7];
    column_scalars<value_t> *column;
};

static int64_t block_count(int64_t mode)
{
    return mode == 2 || mode == -2 ? 5 : 7;
}

int64_t hybrid_work_entries(int64_t n, int64_t nb, int64_t mode)
{
    constexpr int64_t scalars = sizeof(column_scalars<float>) / sizeof(float) + 4; /* the widest in entries, and its alignment */
    return block_count(mode) * bounded_product(n, nb) + bounded_product(scalars, nb);
}

/* Sum of conj(a) * b for one column, accumulated in double. */
template <typename value_t>
static value_t dot_column(int64_t n, const value_t *a, const value_t *b)
{
    using real_t = real_of<value_t>;
    double re = 0, im = 0;
    for (int64_t i = 0; i < n; ++i) {
        if constexpr (is_complex_value<value_t>) {
            const double ar = a[i].real(), ai = a[i].imag(), br = b[i].real(), bi = b[i].imag();
            re += ar * br + ai * bi;
            im += ar * bi - ai * br;
        } else {
            re += static_cast<double>(a[i]) * static_cast<double>(b[i]);
        }
    }
    if constexpr (is_complex_value<value_t>)
        return value_t(static_cast<real_t>(re), static_cast<real_t>(im));
    else
        return static_cast<value_t>(re);
}

template <typename value_t>
static double square_norm(int64_t n, const value_t *v)
{
    double sum = 0;
    for (int64_t i = 0; i < n; ++i) {
        if constexpr (is_complex_value<value_t>) {
            const double re = v[i].real(), im = v[i].imag();
            sum += re * re + im * im;
        } else {
            sum += static_cast<double>(v[i]) * static_cast<double>(v[i]);
        }
    }
    return sum;
}

template <typename value_t>
static double convergence_quantity(const hybrid_run<value_t> *run, const value_t *v)
{
    double worst = 0;
    for (int64_t j = 0; j < run->nb; ++j) {
        const double q = square_norm(run->n, v + j * run->n) / run->column[j].reference;
        if (!(q <= worst)) worst = q; /* keeps a NaN */
        if (worst != worst) break;
    }
    return std::sqrt(worst);
}

template <typename value_t>
static void set_references(const hybrid_run<value_t> *run, const value_t *v)
{
    for (int64_t j = 0; j < run->nb; ++j) {
        const double norm = square_norm(run->n, v + j * run->n);
        run->column[j] = {value_t(1), norm > 0 ? norm : 1.0, false};
    }
}

template <typename value_t>
static int64_t solve_over(hybrid_run<value_t> *run, value_t *v)
{
    run->precondition.b = v;
    return solution_step(&run->precondition);
}

template <typename value_t>
static void copy_block(int64_t count, const value_t *from, value_t *to)
{
    for (int64_t i = 0; i < count; ++i) to[i] = from[i];
}

/* r = b - A x */
template <typename value_t>
static void first_residual(const hybrid_run<value_t> *run, const value_t *b, const value_t *x, value_t *r)
{
    multiply_matrix(run->matrix, run->nb, x, r);
    for (int64_t i = 0; i < run->n * run->nb; ++i) r[i] = b[i] - r[i];
}

/* a / b, or false when the quotient is of no use. */
template <typename value_t>
static bool quotient(const value_t &a, const value_t &b, value_t *q)
{
    *q = a / b;
    return std::isfinite(std::abs(*q));
}

/* The shared stop tests. CG looks at the stall from the check iteration on, CGS at it alone. Returns true when the loop ends. */
static bool stops(const hybrid_request *request, double value, bool check_now, double *best, int64_t *status)
{
    *status = 0;
    if (value < request->tolerance) return true;
    *status = -1;
    if (!(value <= request->divergence_bound)) return true;
    if (value < *best) *best = value;
    *status = -2;
    return check_now && *best > std::sqrt(request->tolerance);
}

static constexpr double best_start = 1e30;

template <typename value_t>
static bool cg_first_half(const hybrid_run<value_t> *run, bool first)
{
    value_t *const r = run->block[0], *const z = run->block[1], *const p = run->block[2];
    for (int64_t j = 0; j < run->nb; ++j) {
        const int64_t at = j * run->n;
        const value_t rho = dot_column(run->n, r + at, z + at);
        value_t beta = value_t(0);
        run->column[j].done = std::abs(rho) == 0 && square_norm(run->n, r + at) == 0;
        if (!run->column[j].done && !first && !quotient(rho, run->column[j].rho, &beta)) return false;
        run->column[j].rho = rho;
        for (int64_t i = 0; i < run->n; ++i) p[at + i] = z[at + i] + product(beta, p[at + i]);
    }
    return true;
}

template <typename value_t>
static bool cg_second_half(const hybrid_run<value_t> *run, value_t *x)
{
    value_t *const r = run->block[0], *const p = run->block[2], *const q = run->block[3];
    for (int64_t j = 0; j < run->nb; ++j) {
        if (run->column[j].done) continue;
        const int64_t at = j * run->n;
        value_t alpha;
        if (!quotient(run->column[j].rho, dot_column(run->n, p + at, q + at), &alpha)) return false;
        for (int64_t i = 0; i < run->n; ++i) {
            x[at + i] += product(alpha, p[at + i]);
            r[at + i] -= product(alpha, q[at + i]);
        }
    }
    return true;
}

template <typename value_t>
static void iterate_cg(hybrid_run<value_t> *run, const hybrid_request *request, const value_t *b, value_t *x, hybrid_result *result)
{
    const int64_t count = run->n * run->nb;
    value_t *const r = run->block[0], *const z = run->block[1], *const start = run->block[4];
    copy_block(count, x, start);
    first_residual(run, b, x, r);
    for (int64_t i = 0; i < 2 * count; ++i)
        run->block[2][i] = value_t(0); /* direction and product: 0 times what is left there may be a NaN */
    set_references(run, r);
    double best = best_start;
    result->status = -3;
    while (result->iterations < request->max_iterations) {
        copy_block(count, r, z);
        result->solve_error = solve_over(run, z);
        if (result->solve_error != 0) break;
        const double value = convergence_quantity(run, z);
        bool sound = cg_first_half(run, result->iterations == 0);
        if (sound) {
            multiply_matrix(run->matrix, run->nb, run->block[2], run->block[3]);
            sound = cg_second_half(run, x);
        }
        ++result->iterations;
        int64_t status = -1;
        if (!sound || stops(request, value, result->iterations >= request->check_iteration, &best, &status)) {
            result->status = status;
            break;
        }
    }
    const bool finite = std::isfinite(square_norm(count, x));
    if (result->status == 0 && !finite) result->status = -1;
    if (result->status != 0 || result->solve_error != 0) copy_block(count, start, x);
}

/* u = r + beta q; p = u + beta (q + beta p) */
template <typename value_t>
static bool cgs_first_half(const hybrid_run<value_t> *run, bool first)
{
    value_t *const r = run->block[1], *const shadow = run->block[2], *const p = run->block[3], *const q = run->block[4],
                   *const u = run->block[5];
    for (int64_t j = 0; j < run->nb; ++j) {
        const int64_t at = j * run->n;
        const value_t rho = dot_column(run->n, shadow + at, r + at);
        value_t beta = value_t(0);
        run->column[j].done = std::abs(rho) == 0 && square_norm(run->n, r + at) == 0;
        if (!run->column[j].done && !first && !quotient(rho, run->column[j].rho, &beta)) return false;
        run->column[j].rho = rho;
        for (int64_t i = at; i < at + run->n; ++i) {
            u[i] = r[i] + product(beta, q[i]);
            p[i] = u[i] + product(beta, q[i] + product(beta, p[i]));
        }
    }
    return true;
}

/* q = u - alpha v; u becomes alpha (u + q), which is added to the correction. */
template <typename value_t>
static bool cgs_second_half(const hybrid_run<value_t> *run)
{
    value_t *const y = run->block[0], *const shadow = run->block[2], *const q = run->block[4], *const u = run->block[5],
                   *const v = run->block[6];
    for (int64_t j = 0; j < run->nb; ++j) {
        const int64_t at = j * run->n;
        value_t alpha = value_t(0);
        if (!run->column[j].done && !quotient(run->column[j].rho, dot_column(run->n, shadow + at, v + at), &alpha)) return false;
        for (int64_t i = at; i < at + run->n; ++i) {
            q[i] = u[i] - product(alpha, v[i]);
            u[i] = product(alpha, u[i] + q[i]);
            y[i] += u[i];
        }
    }
    return true;
}

/* v = inverse(M) A w */
template <typename value_t>
static bool preconditioned_product(hybrid_run<value_t> *run, const value_t *w, value_t *v, hybrid_result *result)
{
    multiply_matrix(run->matrix, run->nb, w, v);
    result->solve_error = solve_over(run, v);
    return result->solve_error == 0;
}

template <typename value_t>
static void iterate_cgs(hybrid_run<value_t> *run, const hybrid_request *request, const value_t *b, value_t *x, hybrid_result *result)
{
    const int64_t count = run->n * run->nb;
    value_t *const y = run->block[0], *const r = run->block[1], *const u = run->block[5], *const v = run->block[6];
    for (int64_t i = 0; i < 7 * count; ++i) y[i] = value_t(0);
    set_references(run, x);
    first_residual(run, b, x, r);
    result->solve_error = solve_over(run, r);
    if (result->solve_error != 0) return;
    if (convergence_quantity(run, r) < request->tolerance) {
        for (int64_t i = 0; i < count; ++i) x[i] += r[i];
        *result = {0, 1, 0};
        return;
    }
    copy_block(count, r, run->block[2]);
    double best = best_start;
    result->status = -3;
    while (result->iterations < request->max_iterations) {
        const bool first = result->iterations == 0;
        ++result->iterations;
        int64_t status = -1;
        bool sound = cgs_first_half(run, first);
        if (sound && !preconditioned_product(run, run->block[3], v, result)) return;
        sound = sound && cgs_second_half(run);
        if (sound && !preconditioned_product(run, u, v, result)) return;
        for (int64_t i = 0; sound && i < count; ++i) r[i] -= v[i];
        if (!sound || stops(request, convergence_quantity(run, r), result->iterations == request->check_iteration, &best, &status)) {
            result->status = status;
            break;
        }
    }
    if (result->status == 0 && !std::isfinite(square_norm(count, y))) result->status = -1;
    for (int64_t i = 0; result->status == 0 && i < count; ++i) x[i] += y[i];
}

template <typename value_t>
void hybrid_iteration(const solve_input<value_t> *solve, const residual_matrix<value_t> *matrix, const hybrid_request *request,
                      value_t *work, int64_t work_entries, hybrid_result *result)
{
    hybrid_run<value_t> run;
    const int64_t n = matrix->n, nb = solve->nb, count = n * nb, blocks = block_count(request->mode);
    *result = {0, 0, 0};
    if (work_entries != hybrid_work_entries(n, nb, request->mode)) {
        result->status = -4;
        return;
    }
    run.matrix = matrix;
    run.n = n;
    run.nb = nb;
    run.precondition = *solve;
    run.precondition.overwrite_rhs = 1;
    run.precondition.solve_step_code = 0;
    run.precondition.window_first = run.precondition.window_count = 0;
    for (int64_t k = 0; k < blocks; ++k) run.block[k] = work + k * count;
    const uintptr_t address = reinterpret_cast<uintptr_t>(work + blocks * count), unit = alignof(column_scalars<value_t>);
    run.column = reinterpret_cast<column_scalars<value_t> *>((address + unit - 1) / unit * unit);

    if (blocks == 5)
        iterate_cg(&run, request, solve->b, solve->x, result);
    else
        iterate_cgs(&run, request, solve->b, solve->x, result);
    if (result->status == 0 && result->solve_error == 0 && request->overwrite == 1) copy_block(count, solve->x, solve->b);
}

#define INSTANTIATE(V)                                                                                                                     \
    template void hybrid_iteration<V>(const solve_input<V> *, const residual_matrix<V> *, const hybrid_request *, V *, int64_t,            \
                                      hybrid_result *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
