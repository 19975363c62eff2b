#include "factor/factor_run.h"
#include "factor/team.h"
#include "factor/update_program.h"

#include <cmath>
#include <complex>

#include "service/service.h"

namespace
{

double magnitude(double x)
{
    return std::fabs(x);
}
double magnitude(float x)
{
    return std::fabs(static_cast<double>(x));
}
template <typename real_t>
double magnitude(const std::complex<real_t> &x)
{
    return std::hypot(static_cast<double>(x.real()), static_cast<double>(x.imag()));
}

/* 10 to the power -|exponent|, 0 for exponent 0; for symmetric indefinite types adjusted to the largest entry of the matrix. */
template <typename value_t>
double perturbation_epsilon(const factor_input<value_t> &in)
{
    const int64_t p = in.perturbation_exponent;
    if (p == 0) return 0;
    const double epsilon = std::exp(-2.302585092994046 * std::fabs(static_cast<double>(p)));
    if (in.matrix_type != -2 && in.matrix_type != -4 && in.matrix_type != 6) return epsilon;
    double g = 0;
    for (int64_t i = 0; i < in.nnz_a; ++i) {
        const double x = magnitude(in.a[i]);
        if (x > g) g = x;
    }
    if (g == 0) g = 1;
    return g < 1 ? epsilon * std::sqrt(g) : epsilon / std::sqrt(g);
}

template <typename value_t>
bool pushes(const factor_input<value_t> &in)
{
    return (in.program[0] & program_of_pushes) != 0;
}

/* One thread in core, and no order of updates that other thread counts share. */
template <typename value_t>
bool follows_program(const factor_input<value_t> &in, factor_kind kind)
{
    if (!program_fits(in.program, kind) || in.store->pager != nullptr) return false;
    if (pushes(in) && in.callback_on != 0) return false; /* the pivots are not kept on that way */
    return in.single_thread == 1 || (in.single_thread == 0 && in.lists->two_level != 2 && team_threads(in) == 1);
}

template <typename value_t, factor_kind kind, mirror sym>
void run_driver(factor_run<value_t> *run, void *work)
{
    const factor_input<value_t> &in = *run->in;
    const bool programmed = follows_program(in, kind);
    if (programmed && kind == factor_kind::cholesky && pushes(in))
        pushing_driver(run, work);
    else if (programmed)
        program_driver<value_t, kind, sym>(run, work);
    else if (in.single_thread == 1)
        serial_driver<value_t, kind, sym>(run, work);
    else if (in.single_thread != 0)
        return;
    else if (in.store->pager != nullptr && in.store->pager->admits != nullptr)
        paged_region<value_t, kind, sym>(run, work);
    else if (in.lists->two_level == 0)
        single_level_region<value_t, kind, sym>(run, work);
    else
        two_level_region<value_t, kind, sym>(run, work);
}

template <typename value_t>
const matrix_type_row *find_type(int64_t code)
{
    for (const matrix_type_row &row : matrix_type_rows)
        if (row.code == code && (row.element_words == 2) == !std::is_floating_point_v<value_t>) return &row;
    return nullptr;
}

template <typename value_t>
void run_member(factor_run<value_t> *run, const matrix_type_row &type, void *work)
{
    if (type.kind == factor_kind::cholesky)
        run_driver<value_t, factor_kind::cholesky, mirror::hermitian>(run, work);
    else if (type.kind == factor_kind::lu)
        run_driver<value_t, factor_kind::lu, mirror::symmetric>(run, work);
    else if constexpr (std::is_floating_point_v<value_t>)
        run_driver<value_t, factor_kind::ldlt, mirror::hermitian>(run, work);
    else if (type.hermitian)
        run_driver<value_t, factor_kind::ldlt, mirror::hermitian>(run, work);
    else
        run_driver<value_t, factor_kind::ldlt, mirror::symmetric>(run, work);
}

} // namespace

template <typename value_t>
void numeric_dispatch(const factor_input<value_t> *input, factor_result *result)
{
    *result = {};
    const factor_input<value_t> &in = *input;
    const matrix_type_row *type = find_type<value_t>(in.matrix_type);
    if (type == nullptr) {
        result->error = -1;
        return;
    }
    const supernodal_structure &s = *in.structure;
    factor_run<value_t> run = {};
    run.in = input;
    run.s = &s;
    run.epsilon = perturbation_epsilon(in);
    run.hermitian = type->hermitian;
    run.two_sides = type->kind == factor_kind::lu;
    /* not together where bits must not depend on what has arrived */
    const bool strict_order = in.single_thread != 1 && in.lists->two_level == 2;
    run.most_pending = strict_order ? 1 : pending_limit;
    run.total_entries = s.nnz_l;
    run.last_percent = -1;

    /* pooled: a second factorization gets the same block back; without it the kernels pack on their stacks */
    const int64_t threads = in.single_thread == 1 ? 1 : in.nproc;
    void *work = service_alloc(static_cast<uint64_t>(threads * dense_work_size()), 128);
    report_percent(&run, 0);
    if (!failed(&run)) run_member(&run, *type, work);
    service_free(work);

    result->error = run.error.load();
    result->failed_row = run.failed_column == 0 ? 0 : s.perm[run.failed_column - 1];
    result->stopped = run.stopped;
    result->perturbed = run.perturbed;
    result->positive = run.positive;
    result->negative = run.negative;
}

#define INSTANTIATE(V) template void numeric_dispatch<V>(const factor_input<V> *, factor_result *);
FOR_EACH_VALUE(INSTANTIATE)
