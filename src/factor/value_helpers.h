/* What differs between the value types in the block kernels of this room. */
#pragma once

#include <cmath>
#include <complex>
#include <type_traits>

#include "dense/dense.h"

/* The image of x across the diagonal. */
template <mirror sym, typename value_t>
inline value_t mirrored(const value_t &x)
{
    if constexpr (sym == mirror::hermitian && !std::is_floating_point_v<value_t>)
        return value_t(x.real(), -x.imag());
    else
        return x;
}

/* Written out, since operator* of std::complex calls a routine that recovers from NaN, for each product. */
template <typename value_t>
inline value_t product(const value_t &x, const value_t &y)
{
    if constexpr (std::is_floating_point_v<value_t>)
        return x * y;
    else
        return value_t(x.real() * y.real() - x.imag() * y.imag(), x.real() * y.imag() + x.imag() * y.real());
}

template <typename value_t>
inline real_of<value_t> real_part(const value_t &x)
{
    if constexpr (std::is_floating_point_v<value_t>)
        return x;
    else
        return x.real();
}

/* Size of an entry in a search for pivots: |x|, or |re| + |im| as LAPACK takes it. */
template <typename value_t>
inline real_of<value_t> size_of(const value_t &x)
{
    if constexpr (std::is_floating_point_v<value_t>)
        return std::fabs(x);
    else
        return std::fabs(x.real()) + std::fabs(x.imag());
}

/* 1 or -1 by the real part; 1 for any zero. */
template <typename value_t>
inline double sign_of(const value_t &x)
{
    return real_part(x) < 0 ? -1 : 1;
}

template <typename value_t>
inline void swap_values(value_t *x, value_t *y)
{
    const value_t t = *x;
    *x = *y;
    *y = t;
}

/* Value types with the ways to mirror that differ. */
#define FOR_EACH_MIRROR(X)                                                                                                                 \
    X(double, mirror::hermitian)                                                                                                           \
    X(float, mirror::hermitian)                                                                                                            \
    X(std::complex<double>, mirror::hermitian)                                                                                             \
    X(std::complex<float>, mirror::hermitian)                                                                                              \
    X(std::complex<double>, mirror::symmetric)                                                                                             \
    X(std::complex<float>, mirror::symmetric)
