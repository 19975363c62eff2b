/* Factors made up at random in the layout of the factor store, together with the dense matrix they stand for: the solves are tested
   without a factorization. */
#pragma once

#include <algorithm>
#include <complex>
#include <random>
#include <set>
#include <vector>

#include "solve/solve.h"
#include "state/matrix_types.h"

template <typename value_t>
struct synthetic_factors {
    int64_t n = 0, matrix_type = 0;
    std::vector<int64_t> perm, invp, xsuper, snode, xlindx, lindx, xlnz, xunz, sparent, domain_table, pivots, row_order;
    std::vector<value_t> lnz, unz, a; /* a: dense n by n in the caller's numbering */
    std::vector<double> scale_row, scale_col;
    supernodal_structure structure = {};
    factor_store<value_t> store = {};
};

template <typename value_t>
value_t random_value(std::mt19937 &random)
{
    std::uniform_real_distribution<double> u(-1, 1);
    if constexpr (std::is_floating_point_v<value_t>)
        return static_cast<value_t>(u(random));
    else
        return value_t(static_cast<typename value_t::value_type>(u(random)), static_cast<typename value_t::value_type>(u(random)));
}
template <typename value_t>
value_t conj_if(bool yes, value_t v)
{
    if constexpr (!std::is_floating_point_v<value_t>)
        return yes ? std::conj(v) : v;
    else
        return v;
}

/* Columns 0..n-1 with elimination structure: leaf domains of the given size that only meet in separators. */
inline std::vector<std::set<int64_t>> filled_pattern(int64_t domains, int64_t leaf, int64_t separator, std::vector<int64_t> *pair_columns,
                                                     std::mt19937 &random)
{
    std::vector<std::pair<int64_t, int64_t>> nodes; /* leaves, then separators in postorder */
    int64_t at = 0;
    for (int64_t d = 0; d < domains; ++d, at += leaf) nodes.push_back({at, at + leaf});
    std::vector<std::vector<int64_t>> ancestors(static_cast<size_t>(domains));
    auto add = [&](auto &&self, int64_t first, int64_t last) -> std::vector<int64_t> {
        if (last - first < 2) return {first};
        const int64_t middle = (first + last) / 2;
        std::vector<int64_t> left = self(self, first, middle), right = self(self, middle, last);
        nodes.push_back({at, at + separator});
        at += separator;
        for (int64_t d = first; d < last; ++d) ancestors[static_cast<size_t>(d)].push_back(static_cast<int64_t>(nodes.size()) - 1);
        left.insert(left.end(), right.begin(), right.end());
        return left;
    };
    add(add, 0, domains);
    const int64_t n = at;
    std::vector<std::set<int64_t>> column(static_cast<size_t>(n));
    auto connect = [&](int64_t i, int64_t j) {
        if (i != j) column[static_cast<size_t>(std::min(i, j))].insert(std::max(i, j));
    };
    for (int64_t d = 0; d < domains; ++d) {
        auto pick = [&](size_t node) {
            return nodes[node].first + static_cast<int64_t>(random() % static_cast<uint64_t>(nodes[node].second - nodes[node].first));
        };
        for (int64_t e = 0; e < 2 * leaf; ++e) connect(pick(static_cast<size_t>(d)), pick(static_cast<size_t>(d)));
        for (int64_t node : ancestors[static_cast<size_t>(d)])
            for (int64_t e = 0; e < separator; ++e) connect(pick(static_cast<size_t>(d)), pick(static_cast<size_t>(node)));
    }
    for (int64_t j = 0; j < n; ++j) { /* fill: the first row below the diagonal inherits the rest */
        const auto &rows = column[static_cast<size_t>(j)];
        if (rows.empty()) continue;
        for (int64_t i : rows)
            if (i != *rows.begin()) column[static_cast<size_t>(*rows.begin())].insert(i);
    }
    for (const auto &node : nodes) {
        pair_columns->push_back(node.first + 1);
        pair_columns->push_back(node.second);
    }
    return column;
}

template <typename value_t>
void make_structure(synthetic_factors<value_t> *f, int64_t domains, int64_t leaf, int64_t separator, int64_t width, std::mt19937 &random)
{
    std::vector<int64_t> pairs;
    const auto column = filled_pattern(domains, leaf, separator, &pairs, random);
    const int64_t n = f->n = static_cast<int64_t>(column.size());
    std::set<int64_t> starts;
    for (size_t p = 0; p < pairs.size(); p += 2) starts.insert(pairs[p] - 1);
    f->xsuper = {1};
    for (int64_t j = 1; j < n; ++j) {
        const auto &before = column[static_cast<size_t>(j - 1)];
        const bool joins = !before.empty() && *before.begin() == j && before.size() == column[static_cast<size_t>(j)].size() + 1 &&
                           j + 1 - f->xsuper.back() < width && starts.count(j) == 0;
        if (!joins) f->xsuper.push_back(j + 1);
    }
    f->xsuper.push_back(n + 1);
    const int64_t supernodes = static_cast<int64_t>(f->xsuper.size()) - 1;
    f->xlindx = {1};
    int64_t l = 1, u = 1;
    for (int64_t s = 0; s < supernodes; ++s) {
        const int64_t first = f->xsuper[static_cast<size_t>(s)], last = f->xsuper[static_cast<size_t>(s) + 1] - 1,
                      columns = last - first + 1;
        for (int64_t j = first; j <= last; ++j) f->lindx.push_back(j);
        for (int64_t i : column[static_cast<size_t>(last - 1)]) f->lindx.push_back(i + 1);
        const int64_t rows = static_cast<int64_t>(f->lindx.size()) + 1 - f->xlindx.back();
        f->xlindx.push_back(static_cast<int64_t>(f->lindx.size()) + 1);
        for (int64_t j = first; j <= last; ++j, l += rows, u += rows - columns) {
            f->snode.push_back(s + 1);
            f->xlnz.push_back(l);
            f->xunz.push_back(u);
        }
    }
    f->xlnz.push_back(l);
    f->xunz.push_back(u);
    for (size_t p = 0; p < pairs.size(); p += 2) {
        if (static_cast<int64_t>(p) == 2 * domains) { /* all separators together */
            f->domain_table.push_back(f->snode[static_cast<size_t>(pairs[p] - 1)]);
            f->domain_table.push_back(supernodes);
        }
        f->domain_table.push_back(f->snode[static_cast<size_t>(pairs[p] - 1)]);
        f->domain_table.push_back(f->snode[static_cast<size_t>(pairs[p + 1] - 1)]);
    }
    if (domains == 1) {
        f->domain_table.push_back(supernodes + 1);
        f->domain_table.push_back(supernodes);
    }
    for (size_t s = 0; s < f->xlindx.size() - 1; ++s) {
        const int64_t below = f->xlindx[s] - 1 + f->xsuper[s + 1] - f->xsuper[s];
        f->sparent.push_back(below + 1 < f->xlindx[s + 1] ? f->snode[static_cast<size_t>(f->lindx[static_cast<size_t>(below)] - 1)] : 0);
    }
    f->perm.resize(static_cast<size_t>(n));
    f->invp.resize(static_cast<size_t>(n));
    for (int64_t i = 0; i < n; ++i) f->perm[static_cast<size_t>(i)] = i + 1;
    std::shuffle(f->perm.begin(), f->perm.end(), random);
    for (int64_t i = 0; i < n; ++i) f->invp[static_cast<size_t>(f->perm[static_cast<size_t>(i)] - 1)] = i + 1;
    f->structure = {n,
                    supernodes,
                    f->perm.data(),
                    f->invp.data(),
                    f->xsuper.data(),
                    f->snode.data(),
                    f->xlindx.data(),
                    f->lindx.data(),
                    f->xlnz.data(),
                    f->xunz.data(),
                    f->sparent.data(),
                    l - 1,
                    u - 1,
                    domains,
                    f->domain_table.data()};
}

/* Random blocks; g is the lower factor with the exchanges undone, h the right-hand factor, d the block diagonal: A = g d h. */
template <typename value_t>
void fill_supernode(synthetic_factors<value_t> *f, int64_t number, factor_kind kind, bool hermitian, std::vector<value_t> &g,
                    std::vector<value_t> &h, std::vector<value_t> &d, std::mt19937 &random)
{
    const supernodal_structure &s = f->structure;
    const int64_t n = f->n, first = s.xsuper[number - 1] - 1, c = supernode_columns(s, number), r = supernode_rows(s, number);
    const int64_t *list = supernode_row_list(s, number);
    value_t *block = f->lnz.data() + (s.xlnz[first] - 1), *panel_u = f->unz.data() + (s.xunz[first] - 1);
    for (int64_t j = 0; j < c; ++j) {
        for (int64_t i = 0; i < r; ++i) block[j * r + i] = random_value<value_t>(random) / value_t(static_cast<float>(4));
        for (int64_t i = 0; i < r - c; ++i) panel_u[j * (r - c) + i] = random_value<value_t>(random) / value_t(4.0F);
        block[j * r + j] = kind == factor_kind::cholesky ? value_t(1.5F) : value_t(j % 2 != 0 ? -1.5F : 2.0F);
    }
    std::vector<int64_t> order(static_cast<size_t>(c)); /* order[i]: row that stands at i after the exchanges */
    for (int64_t i = 0; i < c; ++i) order[static_cast<size_t>(i)] = i;
    for (int64_t k = 0; k < c; ++k) {
        int64_t &record = f->pivots[static_cast<size_t>(first + k)];
        const bool pair = kind == factor_kind::ldlt && k + 1 < c && random() % 2 == 0;
        const int64_t at = pair ? k + 1 : k,
                      with = kind == factor_kind::cholesky ? at : at + static_cast<int64_t>(random() % static_cast<uint64_t>(c - at));
        std::swap(order[static_cast<size_t>(at)], order[static_cast<size_t>(with)]);
        record = pair ? -(with + 1) : with + 1;
        d[static_cast<size_t>((first + k) * n + first + k)] = kind == factor_kind::ldlt ? block[k * r + k] : value_t(1);
        if (!pair) continue;
        f->pivots[static_cast<size_t>(first + k + 1)] = record;
        block[k * r + k + 1] = value_t(0);
        const value_t off = random_value<value_t>(random) + value_t(2.0F);
        block[(k + 1) * r + k] = off;
        d[static_cast<size_t>((first + k + 1) * n + first + k)] = off;
        d[static_cast<size_t>((first + k) * n + first + k + 1)] = conj_if(hermitian, off);
        d[static_cast<size_t>((first + k + 1) * n + first + k + 1)] = block[(k + 1) * r + k + 1];
        ++k;
    }
    for (int64_t j = 0; j < c; ++j) {
        for (int64_t i = j; i < r; ++i) {
            const value_t v = i == j && kind != factor_kind::cholesky ? value_t(1) : block[j * r + i];
            const int64_t row = i < c ? first + order[static_cast<size_t>(i)] : list[i] - 1;
            g[static_cast<size_t>((first + j) * n + row)] = v;
            if (kind != factor_kind::lu) h[static_cast<size_t>(row * n + first + j)] = conj_if(hermitian, v);
        }
        if (kind != factor_kind::lu) continue;
        for (int64_t i = 0; i <= j; ++i) h[static_cast<size_t>((first + j) * n + first + i)] = block[j * r + i];
        for (int64_t i = 0; i < r - c; ++i) h[static_cast<size_t>((list[c + i] - 1) * n + first + j)] = panel_u[j * (r - c) + i];
    }
}

template <typename value_t>
std::vector<value_t> multiply_dense(int64_t n, const std::vector<value_t> &a, const std::vector<value_t> &b)
{
    std::vector<value_t> c(static_cast<size_t>(n * n));
    for (int64_t j = 0; j < n; ++j)
        for (int64_t k = 0; k < n; ++k) {
            const value_t t = b[static_cast<size_t>(j * n + k)];
            if (t == value_t(0)) continue;
            for (int64_t i = 0; i < n; ++i) c[static_cast<size_t>(j * n + i)] += a[static_cast<size_t>(k * n + i)] * t;
        }
    return c;
}

/* scaled: random scale factors (symmetric kinds share one), and for LU a random row order. */
template <typename value_t>
void make_factors(synthetic_factors<value_t> *f, int64_t matrix_type, int64_t domains, int64_t leaf, int64_t separator, bool scaled,
                  unsigned seed)
{
    std::mt19937 random(seed);
    make_structure(f, domains, leaf, separator, 5, random);
    f->matrix_type = matrix_type;
    const int64_t n = f->n;
    const matrix_type_row *row = std::find_if(std::begin(matrix_type_rows), std::end(matrix_type_rows),
                                              [&](const matrix_type_row &r) { return r.code == matrix_type; });
    f->lnz.resize(static_cast<size_t>(f->structure.nnz_l));
    f->unz.resize(static_cast<size_t>(f->structure.nnz_u) + 1);
    f->pivots.resize(static_cast<size_t>(n));
    std::vector<value_t> g(static_cast<size_t>(n * n)), h(g), d(g);
    for (int64_t s = 1; s <= f->structure.supernodes; ++s) fill_supernode(f, s, row->kind, row->hermitian, g, h, d, random);
    const std::vector<value_t> product = multiply_dense(n, multiply_dense(n, g, d), h);
    f->row_order.resize(static_cast<size_t>(n));
    for (int64_t i = 0; i < n; ++i) f->row_order[static_cast<size_t>(i)] = i + 1;
    if (row->kind == factor_kind::lu) std::shuffle(f->row_order.begin(), f->row_order.end(), random);
    std::uniform_real_distribution<double> u(0.5, 2);
    for (int64_t i = 0; i < n; ++i) f->scale_row.push_back(scaled ? u(random) : 1.0);
    for (int64_t i = 0; i < n; ++i)
        f->scale_col.push_back(!scaled ? 1.0 : row->kind == factor_kind::lu ? u(random) : f->scale_row[static_cast<size_t>(i)]);
    f->a.resize(static_cast<size_t>(n * n));
    for (int64_t j = 0; j < n; ++j)
        for (int64_t i = 0; i < n; ++i) {
            const int64_t gj = f->perm[static_cast<size_t>(j)] - 1,
                          gi = f->row_order[static_cast<size_t>(f->perm[static_cast<size_t>(i)] - 1)] - 1;
            const double scale = f->scale_row[static_cast<size_t>(gi)] * f->scale_col[static_cast<size_t>(gj)];
            f->a[static_cast<size_t>(gj * n + gi)] = product[static_cast<size_t>(j * n + i)] / value_t(static_cast<float>(1)) *
                                                     value_t(static_cast<typename real_type_of<value_t>::type>(1.0 / scale));
        }
    f->store = {f->lnz.data(), f->unz.data(), f->pivots.data(), nullptr, nullptr, nullptr};
}
