/* Plain loops and operands for the tests of the dense room. */
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "dense/kernel_table.h"
#include "service/service.h"

template <typename value_t>
constexpr bool complex_value = !std::is_floating_point_v<value_t>;

template <typename value_t>
value_t value_from(double re, double im)
{
    if constexpr (complex_value<value_t>)
        return value_t(static_cast<real_of<value_t>>(re), static_cast<real_of<value_t>>(im));
    else
        return static_cast<value_t>(re + 0 * im);
}

template <typename value_t>
value_t conjugated(value_t x, bool wanted)
{
    if constexpr (complex_value<value_t>)
        return wanted ? std::conj(x) : x;
    else
        return x;
}

/* A column-major block with slack under each column; the slack holds NaN until written, and must stay as it is. */
template <typename value_t>
struct block {
    int64_t m, n, ld;
    std::vector<value_t> value;
    block(int64_t rows, int64_t columns, int64_t slack, uint64_t seed)
        : m(rows), n(columns), ld(rows + slack), value(static_cast<size_t>(ld * columns), value_from<value_t>(std::nan(""), std::nan("")))
    {
        std::mt19937_64 generator(seed);
        std::uniform_real_distribution<double> uniform(-1, 1);
        for (int64_t j = 0; j < n; ++j) {
            for (int64_t i = 0; i < m; ++i) {
                const double re = uniform(generator);
                (*this)(i, j) = value_from<value_t>(re, uniform(generator));
            }
        }
    }
    value_t &operator()(int64_t i, int64_t j)
    {
        return value[static_cast<size_t>(i + j * ld)];
    }
    const value_t &operator()(int64_t i, int64_t j) const
    {
        return value[static_cast<size_t>(i + j * ld)];
    }
    value_t *data()
    {
        return value.data();
    }
    const value_t *data() const
    {
        return value.data();
    }
};

template <typename value_t>
value_t taken(const block<value_t> &a, char trans, int64_t i, int64_t j)
{
    return trans == 'N' ? a(i, j) : conjugated(a(j, i), trans == 'C');
}

/* op(a) * op(b), m by n over the depth k. */
template <typename value_t>
block<value_t> product_of(char ta, const block<value_t> &a, char tb, const block<value_t> &b, int64_t m, int64_t n, int64_t k)
{
    block<value_t> c(m, n, 0, 1);
    for (int64_t j = 0; j < n; ++j) {
        for (int64_t i = 0; i < m; ++i) {
            value_t sum = 0;
            for (int64_t l = 0; l < k; ++l) sum += taken(a, ta, i, l) * taken(b, tb, l, j);
            c(i, j) = sum;
        }
    }
    return c;
}

/* Entries agree within `bound` and slack is untouched (still NaN). */
template <typename value_t>
void expect_close(const block<value_t> &x, const block<value_t> &y, double bound, const std::string &what)
{
    for (int64_t j = 0; j < x.n; ++j) {
        for (int64_t i = 0; i < x.ld; ++i) {
            const bool slack = i >= x.m;
            if (slack)
                ASSERT_TRUE(std::isnan(std::abs(x.value[static_cast<size_t>(i + j * x.ld)]))) << what << " slack " << i << "," << j;
            else
                ASSERT_LE(static_cast<double>(std::abs(x(i, j) - y(i, j))), bound) << what << " at " << i << "," << j;
        }
    }
}

template <typename value_t>
double epsilon_of()
{
    return static_cast<double>(std::numeric_limits<real_of<value_t>>::epsilon());
}

/* Families that this machine can run. */
inline std::vector<int32_t> runnable_families()
{
    const uint64_t word = service_cpu_feature_word();
    std::vector<int32_t> types = {0};
    const int bits[4] = {7, 8, 10, 16};
    for (int32_t t = 1; t <= 4; ++t)
        if ((word >> bits[t - 1]) & 1) types.push_back(t);
    if ((word & cpu_feature_avx2) != 0 && (word & cpu_feature_fma) != 0) types.push_back(5);
    return types;
}

/* Workspace of the kernels; poisoned, so that nothing can rely on zeros. */
struct workspace {
    void *p = service_alloc(static_cast<uint64_t>(kernel_work_bytes), 64);
    workspace()
    {
        for (int64_t i = 0; i < kernel_work_bytes / 8; ++i) static_cast<double *>(p)[i] = std::nan("");
    }
    ~workspace()
    {
        service_free(p);
    }
    workspace(const workspace &) = delete;
    workspace &operator=(const workspace &) = delete;
};

using value_types = ::testing::Types<double, float, std::complex<double>, std::complex<float>>;
