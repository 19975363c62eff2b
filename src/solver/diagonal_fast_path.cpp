#include <cmath>
#include <complex>
#include <type_traits>

#include "solver/control.h"

namespace
{
template <typename real_t>
bool is_zero(const real_t &value)
{
    return value == real_t(0);
}

template <typename real_t>
bool is_zero(const std::complex<real_t> &value)
{
    return std::sqrt(value.real() * value.real() + value.imag() * value.imag()) == real_t(0);
}

/* Every row holds one entry, and it is not zero. Real types count signs on the way. */
template <typename value_t>
int64_t check_rows(int64_t n, const value_t *a, const int64_t *ia, int64_t *positive, int64_t *negative)
{
    *positive = *negative = 0;
    for (int64_t i = 0; i < n; ++i) {
        if (static_cast<uint64_t>(ia[i + 1]) - static_cast<uint64_t>(ia[i]) != 1) return i + 1;
        if (is_zero(a[i])) return -(i + 1);
        if constexpr (std::is_floating_point_v<value_t>) ++*(a[i] > 0 ? positive : negative);
    }
    return 0;
}

template <typename value_t>
void divide_rows(int64_t n, const value_t *a, int64_t nb, const value_t *b, value_t *x, int64_t threads)
{
    const int team = static_cast<int>(threads);
    if (nb < 2) {
#pragma omp parallel for num_threads(team) schedule(static)
        for (int64_t i = 0; i < n; ++i) x[i] = b[i] / a[i];
        return;
    }
#pragma omp parallel for num_threads(team) schedule(static)
    for (int64_t i = 0; i < n; ++i) {
        for (int64_t j = 0; j < nb; ++j) x[j * n + i] = b[j * n + i] / a[i];
    }
}
} // namespace

template <typename value_t>
void diagonal_fast_path(int64_t n, const value_t *a, const int64_t *ia, int64_t nb, int64_t *iparam, value_t *b, value_t *x,
                        int64_t threads, bool solve, int64_t *error)
{
    int64_t positive = 0, negative = 0;
    *error = check_rows(n, a, ia, &positive, &negative);
    if constexpr (std::is_floating_point_v<value_t>) {
        iparam_at(iparam, iparam_positive_pivots) = positive;
        iparam_at(iparam, iparam_negative_pivots) = negative;
    }
    if (*error != 0 || !solve || n < 1 || nb < 1) return;
    divide_rows(n, a, nb, b, x, threads);
    if (iparam_at(iparam, iparam_overwrite_rhs) != 1) return;
    for (int64_t i = 0; i < n * nb; ++i) b[i] = x[i];
}

#define INSTANTIATE(V)                                                                                                                     \
    template void diagonal_fast_path<V>(int64_t, const V *, const int64_t *, int64_t, int64_t *, V *, V *, int64_t, bool, int64_t *);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
