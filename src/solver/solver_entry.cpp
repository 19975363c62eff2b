/* The way into the solver: queries, defaults, threads, precision, and the shortcut for a matrix that is nothing but its diagonal. */
#include "solver/solver.h"

#include <complex>

#include "service/service.h"
#include "solver/control.h"

namespace
{
constexpr int64_t rows_per_thread = 50; /* below this, another thread costs more than it brings */
constexpr int64_t limits_answer = 300000, parameters_error = 16, parameters_answer = 23;

int64_t value_of(const int64_t *argument, int64_t absent)
{
    return argument != nullptr ? *argument : absent;
}

/* True when ido was a question about the library, and the answer is given. */
bool answer_query(int64_t ido, int64_t *iparam, int64_t *error)
{
    if (ido == ido_query_parameters) {
        *error = parameters_error;
        if (iparam != nullptr) iparam_at(iparam, iparam_use_defaults) = parameters_answer;
        return true;
    }
    if (ido == ido_query_limits) *error = limits_answer;
    return ido == ido_query_limits;
}

/* Threads for a system of n equations. */
int64_t choose_threads(int64_t n)
{
    int64_t threads = 1;
    solver_thread_count(&threads);
    if (n / rows_per_thread < threads && n < threads * rows_per_thread) {
        if (solver_dynamic_flag() != 0) threads = n / rows_per_thread;
        if (threads < 1) threads = 1;
    }
    return threads;
}

void choose_reproducible_units(int64_t *iparam)
{
    int64_t &units = iparam_at(iparam, iparam_reproducible_units);
    if (units != 0) return;
    units = -1;
    if (!solver_cbwr_active()) return;
    units = solver_physical_cores();
    if (units < 1) units = 1;
}

/* As many entries as equations? */
bool is_diagonal(const solver_call *call)
{
    if (call->ido < 1 || call->ia == nullptr || call->neqns < 0) return false;
    const int64_t last = call->ia[call->neqns];
    return last == call->neqns + (iparam_at(call->iparam, iparam_zero_based) != 0 ? 0 : 1);
}

template <typename value_t>
void run_shortcut(solver_call *call, int64_t threads)
{
    diagonal_fast_path(call->neqns, static_cast<const value_t *>(call->a), call->ia, call->nb, call->iparam,
                       static_cast<value_t *>(call->b), static_cast<value_t *>(call->x), threads, call->ido % 10 == phase_solve,
                       &call->error);
}

bool lacks_arrays(const solver_call *call)
{
    const bool solves = call->ido % 10 == phase_solve && call->nb > 0;
    return call->neqns > 0 && (call->a == nullptr || (solves && (call->b == nullptr || call->x == nullptr)));
}

void take_shortcut(solver_call *call, int64_t threads)
{
    iparam_at(call->iparam, iparam_transpose) = -1;
    if (call->ido == ido_analyse) return;
    const int64_t type = call->matrix_type > 10 ? call->matrix_type - 10 : call->matrix_type;
    if (lacks_arrays(call))
        call->error = error_diagonal;
    else if (type > 2 || type < -2) {
        if (call->real_bytes == 4)
            run_shortcut<std::complex<float>>(call, threads);
        else
            run_shortcut<std::complex<double>>(call, threads);
    } else if (call->real_bytes == 4)
        run_shortcut<float>(call, threads);
    else
        run_shortcut<double>(call, threads);
    if (call->error != 0) call->error = error_diagonal;
}

bool wants_partial_solve(const solver_call *call)
{
    int64_t *iparam = call->iparam;
    return iparam_at(iparam, iparam_partial_solve) != 0 && iparam_at(iparam, iparam_hybrid) == 0 &&
           iparam_at(iparam, iparam_refinement_request) == 0 && iparam_at(iparam, iparam_core_mode) == 0 && call->ido >= ido_analyse &&
           call->ido <= ido_analyse_factor_solve;
}

/* Arguments that every call reads. */
bool lacks_arguments(void *const *handle, const int64_t *ido, const int64_t *neqns, const int64_t *iparam)
{
    return handle == nullptr || ido == nullptr || neqns == nullptr || iparam == nullptr;
}
} // namespace

void solver_entry(void **handle, const int64_t *max_fac_store, const int64_t *matrix_number, const int64_t *matrix_type, const int64_t *ido,
                  const int64_t *neqns, const void *a, const int64_t *ia, const int64_t *ja, int64_t *perm, const int64_t *nb,
                  int64_t *iparam, const int64_t *msglvl, void *b, void *x, int64_t *error)
{
    int64_t unwanted = 0;
    if (error == nullptr) error = &unwanted;
    if (ido != nullptr && answer_query(*ido, iparam, error)) return;
    *error = error_none;
    if (lacks_arguments(handle, ido, neqns, iparam)) {
        *error = error_input;
        return;
    }
    solver_call call{};
    call.handle = handle;
    call.max_fac_store = value_of(max_fac_store, 1);
    call.matrix_number = value_of(matrix_number, 1);
    call.matrix_type = value_of(matrix_type, 0);
    call.ido = *ido;
    call.neqns = *neqns;
    call.nb = value_of(nb, 1);
    call.msglvl = value_of(msglvl, 0);
    call.a = a;
    call.ia = ia;
    call.ja = ja;
    call.perm = perm;
    call.iparam = iparam;
    call.b = b;
    call.x = x;

    if (iparam_at(iparam, iparam_use_defaults) == 0) iparam_defaults(iparam, call.matrix_type);
    call.real_bytes = precision_select(handle, call.ido, iparam) ? 4 : 8;
    choose_reproducible_units(iparam);
    const int64_t threads = choose_threads(call.neqns);
    if (is_diagonal(&call)) {
        take_shortcut(&call, threads);
        *error = call.error;
        return;
    }
    iparam_at(iparam, iparam_threads) = threads;
    if (wants_partial_solve(&call)) {
        partial_solve_ordering(call.neqns, iparam, ja, ia, perm, &call.error);
        *error = call.error;
        if (call.error != 0) return;
    }
    phase_driver(&call);
    *error = call.error;
}
