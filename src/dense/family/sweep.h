/* Operations with one vector, bound by the memory that holds the panel: gemv, the triangular solve of a diagonal block and the two steps
   through a panel whose rows are scattered in the vector. */
#pragma once

#include "dense/family/vector_ops.h"

namespace WKL_FAMILY
{
namespace
{

/* Reals of a vector kept in a first-level buffer while the columns of a panel pass by. */
constexpr int64_t sweep_bytes = 8192;
template <typename value_t>
constexpr int64_t sweep_values = sweep_bytes / static_cast<int64_t>(sizeof(value_t));

/* x -= l * y for single values. */
template <typename value_t>
DENSE_INLINE void subtract_value(const value_t *l, bool conjugate, const value_t *y, value_t *x)
{
    const real_of<value_t> *a = as_real(l);
    const real_of<value_t> *b = as_real(y);
    real_of<value_t> *c = as_real(x);
    if constexpr (is_complex<value_t>) {
        const real_of<value_t> im = conjugate ? -a[1] : a[1];
        const real_of<value_t> re = madd(-a[0], b[0], c[0]);
        c[1] = madd(-im, b[0], madd(-a[0], b[1], c[1]));
        c[0] = madd(im, b[1], re);
    } else {
        (void)conjugate;
        c[0] = madd(-a[0], b[0], c[0]);
    }
}

template <typename value_t>
DENSE_INLINE void divide_value(const value_t *l, bool conjugate, value_t *x)
{
    real_of<value_t> *c = as_real(x);
    if constexpr (is_complex<value_t>) {
        real_of<value_t> f[2];
        reciprocal<value_t>(as_real(l), conjugate, f);
        const real_of<value_t> re = c[0] * f[0] - c[1] * f[1];
        c[1] = c[0] * f[1] + c[1] * f[0];
        c[0] = re;
    } else {
        (void)conjugate;
        c[0] /= as_real(l)[0];
    }
}

/* Columns that a triangular solve takes at a time. */
constexpr int64_t solve_columns = 4;

template <typename value_t>
void solve_lower(bool unit, int64_t n, const value_t *l, int64_t ld, value_t *x)
{
    for (int64_t s = 0; s < n; s += solve_columns) {
        const int64_t count = n - s < solve_columns ? n - s : solve_columns;
        for (int64_t j = s; j < s + count; ++j) {
            if (!unit) divide_value(l + j + j * ld, false, x + j);
            for (int64_t i = j + 1; i < s + count; ++i) subtract_value(l + i + j * ld, false, x + j, x + i);
        }
        subtract_columns(n - s - count, count, l + s + count + s * ld, ld, x + s, x + s + count);
    }
}

template <typename value_t>
void solve_lower_transposed(mirror kind, bool unit, int64_t n, const value_t *l, int64_t ld, value_t *x)
{
    const bool conjugate = kind == mirror::hermitian;
    for (int64_t s = (n - 1) / solve_columns * solve_columns; s >= 0 && n > 0; s -= solve_columns) {
        const int64_t count = n - s < solve_columns ? n - s : solve_columns;
        subtract_products(conjugate, n - s - count, count, l + s + count + s * ld, ld, x + s + count, x + s);
        for (int64_t j = s + count - 1; j >= s; --j) {
            for (int64_t i = j + 1; i < s + count; ++i) subtract_value(l + i + j * ld, conjugate, x + i, x + j);
            if (!unit) divide_value(l + j + j * ld, conjugate, x + j);
        }
    }
}

template <typename value_t>
void panel_forward(int64_t q, int64_t w, const value_t *panel, int64_t ld, const value_t *x, const int64_t *row, value_t *vector)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    alignas(64) unsigned char space[sweep_bytes];
    value_t *sum = reinterpret_cast<value_t *>(space);
    for (int64_t i = 0; i < q; i += sweep_values<value_t>) {
        const int64_t count = q - i < sweep_values<value_t> ? q - i : sweep_values<value_t>;
        const int64_t *position = row + i;
        if (position[count - 1] - position[0] == count - 1) {
            subtract_columns(count, w, panel + i, ld, x, vector + position[0] - 1);
            continue;
        }
        for (int64_t r = 0; r < count; ++r) {
            const real_t *from = as_real(vector + position[r] - 1);
            for (int64_t p = 0; p < width; ++p) as_real(sum + r)[p] = from[p];
        }
        subtract_columns(count, w, panel + i, ld, x, sum);
        for (int64_t r = 0; r < count; ++r) {
            real_t *to = as_real(vector + position[r] - 1);
            for (int64_t p = 0; p < width; ++p) to[p] = as_real(sum + r)[p];
        }
    }
}

template <typename value_t>
void panel_backward(mirror kind, int64_t q, int64_t w, const value_t *panel, int64_t ld, const int64_t *row, const value_t *vector,
                    value_t *x)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    alignas(64) unsigned char space[sweep_bytes];
    value_t *gathered = reinterpret_cast<value_t *>(space);
    for (int64_t i = 0; i < q; i += sweep_values<value_t>) {
        const int64_t count = q - i < sweep_values<value_t> ? q - i : sweep_values<value_t>;
        const int64_t *position = row + i;
        const value_t *y = vector + position[0] - 1;
        if (position[count - 1] - position[0] != count - 1) {
            for (int64_t r = 0; r < count; ++r) {
                const real_t *from = as_real(vector + position[r] - 1);
                for (int64_t p = 0; p < width; ++p) as_real(gathered + r)[p] = from[p];
            }
            y = gathered;
        }
        subtract_products(kind == mirror::hermitian, count, w, panel + i, ld, y, x);
    }
}

/* f = a * b for single values, as reals. */
template <typename value_t>
DENSE_INLINE void value_product(const real_of<value_t> *a, const real_of<value_t> *b, real_of<value_t> *f)
{
    if constexpr (is_complex<value_t>) {
        f[0] = a[0] * b[0] - a[1] * b[1];
        f[1] = a[0] * b[1] + a[1] * b[0];
    } else {
        f[0] = a[0] * b[0];
    }
}

template <typename value_t>
void gemv(char trans, int64_t m, int64_t n, value_t alpha, const value_t *a, int64_t lda, const value_t *x, int64_t incx, value_t beta,
          value_t *y, int64_t incy)
{
    using real_t = real_of<value_t>;
    constexpr int64_t width = parts<value_t>;
    const char t = upper_case(trans);
    const int64_t results = t == 'N' ? m : n;
    if (m < 1 || n < 1) return;
    if (!is_one(beta)) {
        for (int64_t i = 0; i < results; ++i) scale_values(1, beta, y + i * incy);
    }
    if (is_zero(alpha)) return;
    alignas(64) unsigned char space[sweep_bytes];
    value_t *buffer = reinterpret_cast<value_t *>(space);
    real_t f[8] = {};
    real_t sum[8] = {};
    for (int64_t i = 0; i < m; i += sweep_values<value_t>) {
        const int64_t count = m - i < sweep_values<value_t> ? m - i : sweep_values<value_t>;
        const bool straight = (t == 'N' ? incy : incx) == 1;
        value_t *rows = t == 'N' ? y + i * incy : buffer;
        if (!straight) rows = buffer;
        for (int64_t r = 0; r < count && !straight; ++r) {
            const value_t *from = t == 'N' ? y + (i + r) * incy : x + (i + r) * incx;
            for (int64_t p = 0; p < width; ++p) as_real(buffer + r)[p] = as_real(from)[p];
        }
        const value_t *x_rows = straight && t != 'N' ? x + i : rows;
        int64_t j = 0;
        while (j < n) {
            const int64_t columns = j + 4 <= n ? 4 : 1;
            const value_t *block = a + i + j * lda;
            if (t == 'N') {
                for (int64_t c = 0; c < columns; ++c) value_product<value_t>(as_real(&alpha), as_real(x + (j + c) * incx), f + c * width);
                if (columns == 4)
                    add_multiples<value_t, 4>(count, f, block, lda, rows);
                else
                    add_multiples<value_t, 1>(count, f, block, lda, rows);
            } else {
                if (columns == 4)
                    inner_products<value_t, 4>(t == 'C', count, block, lda, x_rows, sum);
                else
                    inner_products<value_t, 1>(t == 'C', count, block, lda, x_rows, sum);
                for (int64_t c = 0; c < columns; ++c) {
                    real_t *to = as_real(y + (j + c) * incy);
                    value_product<value_t>(as_real(&alpha), sum + c * width, f);
                    for (int64_t p = 0; p < width; ++p) to[p] += f[p];
                }
            }
            j += columns;
        }
        for (int64_t r = 0; r < count && !straight && t == 'N'; ++r) {
            for (int64_t p = 0; p < width; ++p) as_real(y + (i + r) * incy)[p] = as_real(buffer + r)[p];
        }
    }
}

template <typename value_t>
value_t dot(int64_t n, const value_t *x, const value_t *y)
{
    real_of<value_t> sum[2];
    inner_products<value_t, 1>(false, n, x, n, y, sum);
    return *reinterpret_cast<const value_t *>(sum);
}

template <typename value_t>
void axpy(int64_t n, value_t alpha, const value_t *x, value_t *y)
{
    add_multiple(n, as_real(&alpha), x, y);
}

} // namespace
} // namespace WKL_FAMILY
