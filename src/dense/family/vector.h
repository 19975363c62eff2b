/* Vectors of one processor family. This and the other headers of the folder are compiled once per family, in a namespace of its own
   (WKL_FAMILY), everything with internal linkage, so that no function of a newer processor can be taken for another's.
   Complex values are handled as pairs of reals: the products are written out in reals, never through the operators of std::complex. */
#pragma once

#include <immintrin.h>

#include <complex>
#include <cstdint>

#include "dense/kernel_table.h"

#define DENSE_INLINE __attribute__((always_inline)) inline
/* Unroll a loop of known count early, so that its arrays become registers. */
#if defined(__clang__)
#define DENSE_UNROLL _Pragma("clang loop unroll(full)")
#else
#define DENSE_UNROLL _Pragma("GCC unroll 16")
#endif

namespace WKL_FAMILY
{
namespace
{

#if defined(__AVX__)
constexpr int64_t vector_bytes = 32;
typedef __m256d vector_d;
typedef __m256 vector_s;
#else
constexpr int64_t vector_bytes = 16;
typedef __m128d vector_d;
typedef __m128 vector_s;
#endif

template <typename real_t>
struct vector_of;
template <>
struct vector_of<double> {
    typedef vector_d type;
};
template <>
struct vector_of<float> {
    typedef vector_s type;
};
template <typename real_t>
using vec = typename vector_of<real_t>::type;
template <typename real_t>
constexpr int64_t lanes = vector_bytes / static_cast<int64_t>(sizeof(real_t));

/* Reals in one value: 1, or 2 for the complex types. */
template <typename value_t>
constexpr int64_t parts = static_cast<int64_t>(sizeof(value_t) / sizeof(real_of<value_t>));
template <typename value_t>
constexpr bool is_complex = parts<value_t> == 2;

template <typename value_t>
DENSE_INLINE real_of<value_t> *as_real(value_t *x)
{
    return reinterpret_cast<real_of<value_t> *>(x);
}
template <typename value_t>
DENSE_INLINE const real_of<value_t> *as_real(const value_t *x)
{
    return reinterpret_cast<const real_of<value_t> *>(x);
}

#if defined(__AVX__)
DENSE_INLINE vector_d load(const double *p)
{
    return _mm256_loadu_pd(p);
}
DENSE_INLINE vector_s load(const float *p)
{
    return _mm256_loadu_ps(p);
}
DENSE_INLINE void store(double *p, vector_d x)
{
    _mm256_storeu_pd(p, x);
}
DENSE_INLINE void store(float *p, vector_s x)
{
    _mm256_storeu_ps(p, x);
}
DENSE_INLINE vector_d broadcast(double x)
{
    return _mm256_set1_pd(x);
}
DENSE_INLINE vector_s broadcast(float x)
{
    return _mm256_set1_ps(x);
}
/* Exchange the two reals of every complex value. */
DENSE_INLINE vector_d swap_pairs(vector_d x)
{
    return _mm256_permute_pd(x, 0x5);
}
DENSE_INLINE vector_s swap_pairs(vector_s x)
{
    return _mm256_permute_ps(x, 0xb1);
}
#else
DENSE_INLINE vector_d load(const double *p)
{
    return _mm_loadu_pd(p);
}
DENSE_INLINE vector_s load(const float *p)
{
    return _mm_loadu_ps(p);
}
DENSE_INLINE void store(double *p, vector_d x)
{
    _mm_storeu_pd(p, x);
}
DENSE_INLINE void store(float *p, vector_s x)
{
    _mm_storeu_ps(p, x);
}
DENSE_INLINE vector_d broadcast(double x)
{
    return _mm_set1_pd(x);
}
DENSE_INLINE vector_s broadcast(float x)
{
    return _mm_set1_ps(x);
}
DENSE_INLINE vector_d swap_pairs(vector_d x)
{
    return _mm_shuffle_pd(x, x, 0x1);
}
DENSE_INLINE vector_s swap_pairs(vector_s x)
{
    return _mm_shuffle_ps(x, x, 0xb1);
}
#endif

/* c + a * b and c - a * b: one rounding in the families that have it, two in the others; the scalar form agrees with the vector form. */
#if defined(__FMA__)
DENSE_INLINE vector_d madd(vector_d a, vector_d b, vector_d c)
{
    return _mm256_fmadd_pd(a, b, c);
}
DENSE_INLINE vector_s madd(vector_s a, vector_s b, vector_s c)
{
    return _mm256_fmadd_ps(a, b, c);
}
DENSE_INLINE vector_d nmadd(vector_d a, vector_d b, vector_d c)
{
    return _mm256_fnmadd_pd(a, b, c);
}
DENSE_INLINE vector_s nmadd(vector_s a, vector_s b, vector_s c)
{
    return _mm256_fnmadd_ps(a, b, c);
}
DENSE_INLINE double madd(double a, double b, double c)
{
    return __builtin_fma(a, b, c);
}
DENSE_INLINE float madd(float a, float b, float c)
{
    return __builtin_fmaf(a, b, c);
}
#else
DENSE_INLINE vector_d madd(vector_d a, vector_d b, vector_d c)
{
    return c + a * b;
}
DENSE_INLINE vector_s madd(vector_s a, vector_s b, vector_s c)
{
    return c + a * b;
}
DENSE_INLINE vector_d nmadd(vector_d a, vector_d b, vector_d c)
{
    return c - a * b;
}
DENSE_INLINE vector_s nmadd(vector_s a, vector_s b, vector_s c)
{
    return c - a * b;
}
DENSE_INLINE double madd(double a, double b, double c)
{
    return c + a * b;
}
DENSE_INLINE float madd(float a, float b, float c)
{
    return c + a * b;
}
#endif

/* The first `count` lanes, 1 <= count <= lanes; what lies beyond them is neither read nor written. Lanes not read are 0. */
#if defined(__AVX__)
alignas(32) constexpr int64_t mask_words_d[8] = {-1, -1, -1, -1, 0, 0, 0, 0};
alignas(32) constexpr int32_t mask_words_s[16] = {-1, -1, -1, -1, -1, -1, -1, -1, 0, 0, 0, 0, 0, 0, 0, 0};
DENSE_INLINE __m256i lane_mask(double, int64_t count)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(mask_words_d + 4 - count));
}
DENSE_INLINE __m256i lane_mask(float, int64_t count)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(mask_words_s + 8 - count));
}
DENSE_INLINE __m256i range_mask(double, int64_t first, int64_t count)
{
    const __m256i before = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(mask_words_d + 4 - first));
    return _mm256_castpd_si256(_mm256_andnot_pd(_mm256_castsi256_pd(before), _mm256_castsi256_pd(lane_mask(0.0, count))));
}
DENSE_INLINE __m256i range_mask(float, int64_t first, int64_t count)
{
    const __m256i before = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(mask_words_s + 8 - first));
    return _mm256_castps_si256(_mm256_andnot_ps(_mm256_castsi256_ps(before), _mm256_castsi256_ps(lane_mask(0.0F, count))));
}
/* p += x on lanes first .. count - 1 alone. */
DENSE_INLINE void add_range(double *p, vector_d x, int64_t first, int64_t count)
{
    const __m256i mask = range_mask(0.0, first, count);
    _mm256_maskstore_pd(p, mask, _mm256_maskload_pd(p, mask) + x);
}
DENSE_INLINE void add_range(float *p, vector_s x, int64_t first, int64_t count)
{
    const __m256i mask = range_mask(0.0F, first, count);
    _mm256_maskstore_ps(p, mask, _mm256_maskload_ps(p, mask) + x);
}
DENSE_INLINE vector_d load_part(const double *p, int64_t count)
{
    return _mm256_maskload_pd(p, lane_mask(0.0, count));
}
DENSE_INLINE vector_s load_part(const float *p, int64_t count)
{
    return _mm256_maskload_ps(p, lane_mask(0.0F, count));
}
DENSE_INLINE void store_part(double *p, vector_d x, int64_t count)
{
    _mm256_maskstore_pd(p, lane_mask(0.0, count), x);
}
DENSE_INLINE void store_part(float *p, vector_s x, int64_t count)
{
    _mm256_maskstore_ps(p, lane_mask(0.0F, count), x);
}
#else
template <typename real_t>
DENSE_INLINE vec<real_t> load_part(const real_t *p, int64_t count)
{
    if (count == lanes<real_t>) return load(p);
    alignas(16) real_t lane[lanes<real_t>] = {};
    for (int64_t i = 0; i < count; ++i) lane[i] = p[i];
    return load(lane);
}
template <typename real_t>
DENSE_INLINE void store_part(real_t *p, vec<real_t> x, int64_t count)
{
    if (count == lanes<real_t>) return store(p, x);
    alignas(16) real_t lane[lanes<real_t>];
    store(lane, x);
    for (int64_t i = 0; i < count; ++i) p[i] = lane[i];
}
template <typename real_t>
DENSE_INLINE void add_range(real_t *p, vec<real_t> x, int64_t first, int64_t count)
{
    alignas(16) real_t lane[lanes<real_t>];
    store(lane, x);
    for (int64_t i = first; i < count; ++i) p[i] += lane[i];
}
#endif

/* {even, odd, even, odd, ...} */
template <typename real_t>
vec<real_t> broadcast_pair(real_t even, real_t odd);
#if defined(__AVX__)
template <>
DENSE_INLINE vector_d broadcast_pair<double>(double even, double odd)
{
    return _mm256_setr_pd(even, odd, even, odd);
}
template <>
DENSE_INLINE vector_s broadcast_pair<float>(float even, float odd)
{
    return _mm256_setr_ps(even, odd, even, odd, even, odd, even, odd);
}
#else
template <>
DENSE_INLINE vector_d broadcast_pair<double>(double even, double odd)
{
    return _mm_setr_pd(even, odd);
}
template <>
DENSE_INLINE vector_s broadcast_pair<float>(float even, float odd)
{
    return _mm_setr_ps(even, odd, even, odd);
}
#endif

/* Sum of the lanes (of the even and of the odd lanes for pairs), in a fixed order. */
template <typename real_t>
DENSE_INLINE real_t sum_lanes(vec<real_t> x, int64_t first, int64_t step)
{
    alignas(vector_bytes) real_t lane[lanes<real_t>];
    store(lane, x);
    real_t sum = lane[first];
    for (int64_t i = first + step; i < lanes<real_t>; i += step) sum += lane[i];
    return sum;
}

} // namespace
} // namespace WKL_FAMILY
