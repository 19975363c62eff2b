/* Multiply the factors back together. */
#pragma once

#include <cmath>

#include "small_problem.h"

/* Row exchanges of a block in the order of elimination, from 0: a 2x2 pivot at k, k + 1 exchanges k + 1 only. */
inline std::vector<std::pair<int64_t, int64_t>> exchanges_of(const int64_t *pivots, int64_t columns)
{
    std::vector<std::pair<int64_t, int64_t>> steps;
    for (int64_t c = 0; c < columns; ++c) {
        if (pivots[c] < 0) {
            steps.emplace_back(c + 1, -pivots[c] - 1);
            ++c;
        } else {
            steps.emplace_back(c, pivots[c] - 1);
        }
    }
    return steps;
}

/* Add the part of supernode s: the matrix is the sum of g h' over the supernodes, g = [E' L; L_panel] and h' = D g' or [U_ss U_panel]. */
template <typename value_t>
void add_supernode(const small_problem<value_t> &q, const factorization<value_t> &f, int64_t s, std::vector<value_t> *sum,
                   std::vector<double> *magnitude)
{
    using small_problem_steps::z;
    const factor_kind kind = type_of(q.type).kind;
    const bool conjugates = kind != factor_kind::lu && type_of(q.type).hermitian;
    auto mirrored = [&](const value_t &x) { return conjugates ? conjugate(x) : x; };
    const int64_t n = q.n, first = q.xsuper[z(s)] - 1, columns = q.xsuper[z(s + 1)] - 1 - first;
    const int64_t rows = q.xlindx[z(s + 1)] - q.xlindx[z(s)];
    const int64_t *list = q.lindx.data() + q.xlindx[z(s)] - 1, *pivots = f.pivots.data() + first;
    const value_t *block = f.lnz.data() + q.xlnz[z(first)] - 1, *upper = f.unz.data() + q.xunz[z(first)] - 1;
    std::vector<value_t> g(z(n * columns), value_t(0)), h(z(n * columns), value_t(0));
    for (int64_t c = 0; c < columns; ++c) {
        for (int64_t i = c; i < rows; ++i) g[z(list[i] - 1 + c * n)] = block[i + c * rows];
        if (kind != factor_kind::cholesky) g[z(first + c + c * n)] = value_t(1);
    }
    for (int64_t c = 0; c < columns; ++c) {
        if (kind == factor_kind::lu) {
            for (int64_t j = c; j < columns; ++j) h[z(first + j + c * n)] = block[c + j * rows];
            for (int64_t i = columns; i < rows; ++i) h[z(list[i] - 1 + c * n)] = upper[i - columns + c * (rows - columns)];
            continue;
        }
        const value_t d = kind == factor_kind::cholesky ? value_t(1) : block[c + c * rows];
        const bool pair = kind == factor_kind::ldlt && pivots[c] < 0;
        for (int64_t i = 0; i < n; ++i) {
            const value_t x = g[z(i + c * n)];
            h[z(i + c * n)] = mirrored(x * mirrored(d));
            if (!pair) continue;
            const value_t y = g[z(i + (c + 1) * n)], above = block[c + (c + 1) * rows];
            h[z(i + c * n)] = mirrored(x * mirrored(d) + y * mirrored(above));
            h[z(i + (c + 1) * n)] = mirrored(x * above + y * mirrored(block[c + 1 + (c + 1) * rows]));
        }
        if (pair) ++c;
    }
    if (kind != factor_kind::cholesky) {
        const auto steps = exchanges_of(pivots, columns);
        for (auto step = steps.rbegin(); step != steps.rend(); ++step)
            for (int64_t k = 0; k < columns; ++k) {
                std::swap(g[z(first + step->first + k * n)], g[z(first + step->second + k * n)]);
                if (kind == factor_kind::ldlt) std::swap(h[z(first + step->first + k * n)], h[z(first + step->second + k * n)]);
            }
    }
    for (int64_t k = 0; k < columns; ++k)
        for (int64_t j = 0; j < n; ++j)
            for (int64_t i = 0; i < n; ++i) {
                if (g[z(i + k * n)] == value_t(0) || h[z(j + k * n)] == value_t(0)) continue;
                (*sum)[z(i + j * n)] += g[z(i + k * n)] * h[z(j + k * n)];
                (*magnitude)[z(i + j * n)] += static_cast<double>(std::abs(g[z(i + k * n)]) * std::abs(h[z(j + k * n)]));
            }
}

/* Largest difference between the product of the factors and the permuted matrix, over n times the largest entry of |g| |h'|, which is what
   elimination with this growth can promise. A NaN counts as 1e300. */
template <typename value_t>
double rebuild_error(const small_problem<value_t> &q, const factorization<value_t> &f)
{
    using small_problem_steps::z;
    std::vector<value_t> sum(z(q.n * q.n), value_t(0));
    std::vector<double> magnitude(z(q.n * q.n), 0);
    for (int64_t s = 0; s < q.structure.supernodes; ++s) add_supernode(q, f, s, &sum, &magnitude);
    double worst = 0;
    for (int64_t j = 0; j < q.n; ++j)
        for (int64_t i = 0; i < q.n; ++i) {
            const double e = static_cast<double>(std::abs(sum[z(i + j * q.n)] - q.at(i, j)));
            if (!(e <= worst)) worst = std::isnan(e) ? 1e300 : e;
        }
    return worst / (*std::max_element(magnitude.begin(), magnitude.end()) * static_cast<double>(q.n));
}
