/* Patterns, orderings and a naive symbolic factorization for the tests of the symbolic analysis. */
#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "analysis/symbolic.h"

using words = std::vector<int64_t>;

struct graph {
    int64_t n;
    words xadj, adj;
};

inline graph graph_of(int64_t n, const std::set<std::pair<int64_t, int64_t>> &edges)
{
    std::vector<words> rows(static_cast<size_t>(n));
    for (const auto &[i, j] : edges) {
        if (i == j) continue;
        rows[static_cast<size_t>(i - 1)].push_back(j);
        rows[static_cast<size_t>(j - 1)].push_back(i);
    }
    graph g{n, {1}, {}};
    for (words &row : rows) {
        std::sort(row.begin(), row.end(), std::greater<int64_t>()); /* nothing may rely on ascending lists */
        row.erase(std::unique(row.begin(), row.end()), row.end());
        g.adj.insert(g.adj.end(), row.begin(), row.end());
        g.xadj.push_back(static_cast<int64_t>(g.adj.size()) + 1);
    }
    if (g.adj.empty()) g.adj.push_back(-1);
    return g;
}

inline graph random_graph(int64_t n, double edges_per_row, uint32_t seed)
{
    std::mt19937_64 random(seed);
    std::uniform_int_distribution<int64_t> vertex(1, n);
    std::set<std::pair<int64_t, int64_t>> edges;
    for (int64_t k = 0; k < static_cast<int64_t>(edges_per_row * static_cast<double>(n)); ++k)
        edges.insert({vertex(random), vertex(random)});
    return graph_of(n, edges);
}

inline graph grid_graph(int64_t side)
{
    std::set<std::pair<int64_t, int64_t>> edges;
    for (int64_t y = 0; y < side; ++y) {
        for (int64_t x = 0; x < side; ++x) {
            if (x + 1 < side) edges.insert({y * side + x + 1, y * side + x + 2});
            if (y + 1 < side) edges.insert({y * side + x + 1, (y + 1) * side + x + 1});
        }
    }
    return graph_of(side * side, edges);
}

struct ordering {
    words perm, table;
    int64_t domains;
};

inline ordering natural_order(int64_t n)
{
    ordering o{{}, {1, n - 1, n, n}, 1};
    for (int64_t j = 1; j <= n; ++j) o.perm.push_back(j);
    return o;
}

inline ordering random_order(int64_t n, uint32_t seed)
{
    ordering o = natural_order(n);
    std::shuffle(o.perm.begin(), o.perm.end(), std::mt19937_64(seed));
    return o;
}

/* Nested dissection of a square grid, with the leaf domains first and the separators behind them. */
inline void dissect(int64_t side, int64_t x0, int64_t x1, int64_t y0, int64_t y1, int64_t domains, std::vector<words> *leaves, words *tops)
{
    const int64_t wide = x1 - x0, high = y1 - y0;
    if (domains == 1) {
        words leaf;
        if (wide > 2 || high > 2) { /* a dissection inside the domain, so that its tree branches */
            std::vector<words> inner;
            dissect(side, x0, x1, y0, y1, 2, &inner, &leaf);
            words all;
            for (const words &part : inner) all.insert(all.end(), part.begin(), part.end());
            all.insert(all.end(), leaf.begin(), leaf.end());
            leaf = all;
        } else {
            for (int64_t y = y0; y < y1; ++y)
                for (int64_t x = x0; x < x1; ++x) leaf.push_back(y * side + x + 1);
        }
        leaves->push_back(leaf);
        return;
    }
    words separator;
    if (wide >= high) {
        const int64_t middle = (x0 + x1) / 2;
        dissect(side, x0, middle, y0, y1, domains / 2, leaves, tops);
        dissect(side, middle + 1, std::max(x1, middle + 1), y0, y1, domains / 2, leaves, tops);
        for (int64_t y = y0; y < y1 && middle < x1; ++y) separator.push_back(y * side + middle + 1);
    } else {
        const int64_t middle = (y0 + y1) / 2;
        dissect(side, x0, x1, y0, middle, domains / 2, leaves, tops);
        dissect(side, x0, x1, middle + 1, std::max(y1, middle + 1), domains / 2, leaves, tops);
        for (int64_t x = x0; x < x1 && middle < y1; ++x) separator.push_back(middle * side + x + 1);
    }
    tops->insert(tops->end(), separator.begin(), separator.end());
}

inline ordering grid_order(int64_t side, int64_t domains)
{
    if (domains < 2) return random_order(side * side, 5);
    std::vector<words> leaves;
    ordering o{{}, words(static_cast<size_t>(4 * domains), 0), domains};
    words tops;
    dissect(side, 0, side, 0, side, domains, &leaves, &tops);
    for (size_t d = 0; d < leaves.size(); ++d) {
        o.table[2 * d] = static_cast<int64_t>(o.perm.size()) + 1;
        o.perm.insert(o.perm.end(), leaves[d].begin(), leaves[d].end());
        o.table[2 * d + 1] = static_cast<int64_t>(o.perm.size());
    }
    o.table[static_cast<size_t>(2 * domains)] = static_cast<int64_t>(o.perm.size()) + 1;
    o.perm.insert(o.perm.end(), tops.begin(), tops.end());
    o.table[static_cast<size_t>(2 * domains + 1)] = static_cast<int64_t>(o.perm.size());
    return o;
}

/* Prelude and symbolic step over arrays of exactly the promised lengths, filled with rubbish. */
struct analysis_run {
    graph g;
    control_block control{};
    phase_times times{};
    words perm, invp, parent, colcnt, xsuper, snode, table, lists, scratch, work;
    words lindx, xlindx, xlnz, xunz, sparent, work_order, update_count, separator_tail, sentinel_a, sentinel_b;
    int64_t result = 1;

    analysis_run(graph input, const ordering &order, int64_t nproc, int64_t panel_columns, int64_t matrix_type = 2)
        : g(std::move(input)), perm(order.perm), table(order.table)
    {
        const size_t n = static_cast<size_t>(g.n), rubbish = 0x5a5a5a5a5a5aULL;
        const int64_t bad = static_cast<int64_t>(rubbish);
        for (words *w : {&invp, &parent, &colcnt, &snode, &work}) w->assign(n, bad);
        for (words *w : {&xsuper, &scratch, &xlnz, &xunz}) w->assign(n + 1, bad);
        lists.assign((2 * static_cast<size_t>(nproc) + 3) * n + 5, bad);
        for (size_t k = 0; k < n; ++k) invp[static_cast<size_t>(perm[k] - 1)] = static_cast<int64_t>(k) + 1;
        control.neqns = g.n;
        control.nproc = nproc;
        control.domains = order.domains;
        control.panel_columns = panel_columns;
        control.matrix_type = matrix_type;
        control.symmetric_structure = matrix_type == 1 || matrix_type == 3 || matrix_type > 10 ? 0 : 1;
        ordering_arrays a{};
        a.perm = perm.data(), a.invp = invp.data(), a.parent = parent.data(), a.colcnt = colcnt.data(), a.xsuper = xsuper.data();
        a.snode = snode.data(), a.xadj = g.xadj.data(), a.adj = g.adj.data(), a.domain_table = table.data(), a.lists = lists.data();
        a.scratch_a = scratch.data(), a.work = work.data();
        result = analysis_prelude(&control, &a);
        const size_t supernodes = static_cast<size_t>(control.supernodes);
        lindx.assign(static_cast<size_t>(control.lindx_size), bad);
        xlindx.assign(supernodes + 1, bad);
        for (words *w : {&sparent, &work_order, &update_count, &separator_tail, &sentinel_a, &sentinel_b}) w->assign(supernodes, bad);
    }
    int64_t symbolic()
    {
        symbolic_arrays a{};
        a.perm = perm.data(), a.invp = invp.data(), a.xadj = g.xadj.data(), a.adj = g.adj.data(), a.xsuper = xsuper.data();
        a.snode = snode.data(), a.parent = parent.data(), a.colcnt = colcnt.data(), a.lindx = lindx.data(), a.xlindx = xlindx.data();
        a.xlnz = xlnz.data(), a.xunz = xunz.data(), a.sparent = sparent.data(), a.work_order = work_order.data();
        a.update_count = update_count.data(), a.separator_tail = separator_tail.data(), a.sentinel_a = sentinel_a.data();
        a.sentinel_b = sentinel_b.data(), a.domain_table = table.data(), a.lists = lists.data();
        a.work = work.data();
        return symbolic_step(&control, &times, &a);
    }
    supernodal_structure view() const
    {
        return {g.n,         control.supernodes, perm.data(),    invp.data(),   xsuper.data(), snode.data(),    xlindx.data(), lindx.data(),
                xlnz.data(), xunz.data(),        sparent.data(), control.nnz_l, control.nnz_u, control.domains, table.data()};
    }
};

/* Rows of each column of L below the diagonal, ascending, by the definition of fill: a column hands its rows to its first one. */
inline std::vector<words> naive_factor(const graph &g, const words &perm, const words &invp)
{
    std::vector<std::set<int64_t>> column(static_cast<size_t>(g.n));
    std::vector<words> result;
    for (size_t j = 0; j < column.size(); ++j) {
        const size_t given = static_cast<size_t>(perm[j] - 1);
        for (int64_t p = g.xadj[given]; p < g.xadj[given + 1]; ++p) {
            const int64_t i = invp[static_cast<size_t>(g.adj[static_cast<size_t>(p - 1)] - 1)];
            if (i > static_cast<int64_t>(j) + 1) column[j].insert(i);
        }
        result.emplace_back(column[j].begin(), column[j].end());
        if (column[j].empty()) continue;
        std::set<int64_t> &parent = column[static_cast<size_t>(*column[j].begin() - 1)];
        parent.insert(std::next(column[j].begin()), column[j].end());
    }
    return result;
}
