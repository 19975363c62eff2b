#include "service/service.h"
#include "spblas/csr_kernels.h"

#include <atomic>
#include <complex>
#include <type_traits>

namespace
{

/* Products written out: operator* of std::complex calls a routine that recovers from NaN, for each product. */
template <typename value_t>
struct plain_arithmetic {
    using value = value_t;
    static constexpr bool real = std::is_floating_point_v<value_t>;
    static constexpr bool fused = false;

    static value_t multiply(value_t a, value_t b)
    {
        if constexpr (real)
            return a * b;
        else
            return value_t(a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real());
    }
    static value_t conjugate(value_t a)
    {
        if constexpr (real)
            return a;
        else
            return value_t(a.real(), -a.imag());
    }
};

constexpr int32_t family_count = 6;
const csr_bodies<double> *const families[family_count] = {&csr_bodies_sse2,  &csr_bodies_sse3, &csr_bodies_ssse3,
                                                          &csr_bodies_sse42, &csr_bodies_avx,  &csr_bodies_avx2};
std::atomic<const csr_bodies<double> *> chosen{nullptr}; /* set on first use; racing threads store the same value */

} // namespace

/* The other types serve the solver's own residuals, which wait for memory in any family: one table for all processors. */
template <typename value_t>
const csr_bodies<value_t> &csr_bodies_chosen()
{
    static constinit const csr_bodies<value_t> table = body_table<plain_arithmetic<value_t>>();
    return table;
}

template <>
const csr_bodies<double> &csr_bodies_chosen<double>()
{
    const csr_bodies<double> *bodies = chosen.load(std::memory_order_acquire);
    if (bodies == nullptr) {
        const int32_t type = service_cpu_type();
        if (type < 0 || type >= family_count) service_cpu_unsupported(type);
        bodies = families[type];
        chosen.store(bodies, std::memory_order_release);
    }
    return *bodies;
}

template const csr_bodies<float> &csr_bodies_chosen<float>();
template const csr_bodies<std::complex<float>> &csr_bodies_chosen<std::complex<float>>();
template const csr_bodies<std::complex<double>> &csr_bodies_chosen<std::complex<double>>();
