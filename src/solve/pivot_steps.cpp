/* Steps inside the diagonal block that do not depend on how many vectors there are: row exchanges and the inverse of D. */
#include "solve/solve_internal.h"

template <typename value_t>
static void swap_rows(int64_t i, int64_t j, int64_t width, value_t *x, int64_t stride)
{
    if (i == j) return;
    for (int64_t k = 0; k < width; ++k) {
        const value_t t = x[i * stride + k];
        x[i * stride + k] = x[j * stride + k];
        x[j * stride + k] = t;
    }
}

/* A positive record exchanges its own row, the second of a negative pair exchanges the second row of its 2x2 pivot. */
template <typename value_t>
void exchange_rows(int64_t columns, const int64_t *pivots, bool undo, int64_t width, value_t *x, int64_t stride)
{
    if (!undo) {
        for (int64_t k = 0; k < columns; ++k) {
            if (pivots[k] < 0) ++k;
            swap_rows(k, (pivots[k] < 0 ? -pivots[k] : pivots[k]) - 1, width, x, stride);
        }
        return;
    }
    for (int64_t k = columns - 1; k >= 0; --k) {
        const bool pair = pivots[k] < 0;
        swap_rows(k, (pair ? -pivots[k] : pivots[k]) - 1, width, x, stride);
        if (pair) --k;
    }
}

/* The 2x2 systems are scaled by their off-diagonal entry, as in the published dense solver, so that no product overflows. */
template <typename value_t>
void apply_inverse_diagonal(bool hermitian, int64_t columns, const value_t *block, int64_t ld, const int64_t *pivots, int64_t width,
                            value_t *x, int64_t stride)
{
    const value_t one = value_t(1);
    for (int64_t k = 0; k < columns; ++k) {
        if (pivots[k] > 0) {
            const value_t inverse = one / block[k * ld + k];
            for (int64_t v = 0; v < width; ++v) x[k * stride + v] = product(x[k * stride + v], inverse);
            continue;
        }
        const value_t d12 = block[(k + 1) * ld + k];
        const value_t d21 = hermitian ? conjugated(d12) : d12;
        const value_t d11 = block[k * ld + k] / d12, d22 = block[(k + 1) * ld + k + 1] / d21;
        const value_t inverse = one / (product(d11, d22) - one), inverse12 = one / d12, inverse21 = one / d21;
        for (int64_t v = 0; v < width; ++v) {
            const value_t b1 = product(x[k * stride + v], inverse12), b2 = product(x[(k + 1) * stride + v], inverse21);
            x[k * stride + v] = product(product(d22, b1) - b2, inverse);
            x[(k + 1) * stride + v] = product(product(d11, b2) - b1, inverse);
        }
        ++k;
    }
}

#define INSTANTIATE(V)                                                                                                                     \
    template void exchange_rows<V>(int64_t, const int64_t *, bool, int64_t, V *, int64_t);                                                 \
    template void apply_inverse_diagonal<V>(bool, int64_t, const V *, int64_t, const int64_t *, int64_t, V *, int64_t);
INSTANTIATE(double)
INSTANTIATE(float)
INSTANTIATE(std::complex<double>)
INSTANTIATE(std::complex<float>)
