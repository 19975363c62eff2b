/* One vector through a small Cholesky factor in core, by one thread. */
#include "solve/solve_internal.h"

/* Larger factors are brought in ahead of the sweeps. */
static constexpr int64_t narrow_solve_entries = 100000, columns_on_average = 8;

template <typename value_t>
bool is_narrow(const sweep<value_t> *w)
{
    const supernodal_structure &s = *w->structure;
    return w->kind == factor_kind::cholesky && w->store->pager == nullptr && s.nnz_l <= narrow_solve_entries &&
           s.neqns <= columns_on_average * s.supernodes;
}

template <typename value_t>
void solve_narrow(const sweep<value_t> *w, value_t *x)
{
    const supernodal_structure &s = *w->structure;
    const int64_t last = s.supernodes;
    const narrow_factor<value_t> factor = {s.xsuper, s.xlindx, s.lindx, s.xlnz, w->store->lnz};
    if (w->forward) kernel_narrow_forward(&factor, w->window.forward_first_supernode, last, x);
    if (w->backward) kernel_narrow_backward(&factor, w->window.backward_last_supernode, last, x);
}

#define INSTANTIATE(V)                                                                                                                     \
    template bool is_narrow<V>(const sweep<V> *);                                                                                          \
    template void solve_narrow<V>(const sweep<V> *, V *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
