/* Small random problems for the numeric factorization: matrix, dense copy, supernodal structure and work lists made in the plainest way, so
   that the tests depend on no other room above this one. */
#pragma once

#include <algorithm>
#include <complex>
#include <cstdint>
#include <random>
#include <vector>

#include "dense/dense.h"
#include "factor/factor.h"
#include "state/matrix_types.h"

template <typename value_t>
constexpr bool is_real = std::is_floating_point_v<value_t>;

inline const matrix_type_row &type_of(int64_t code)
{
    for (const matrix_type_row &row : matrix_type_rows)
        if (row.code == code) return row;
    return matrix_type_rows[0];
}

template <typename value_t>
using real_part_t = real_of<value_t>;

template <typename value_t>
value_t conjugate(const value_t &x)
{
    if constexpr (is_real<value_t>)
        return x;
    else
        return std::conj(x);
}

struct problem_shape {
    int64_t n = 30;
    double density = 0.1;      /* of the pattern off the diagonal */
    int64_t panel_columns = 4; /* widest supernode */
    int64_t domains = 1;       /* parts without edges between them, numbered before the rest */
    unsigned seed = 1;
    double diagonal = -1; /* multiplies the diagonal; -1: dominant */
    bool shuffle_rows = false;
};

template <typename value_t>
struct small_problem {
    int64_t type = 2, n = 0, symmetric = 1;
    std::vector<int64_t> ia, ja, row_order;
    std::vector<value_t> a;
    std::vector<value_t> dense; /* the whole matrix with its rows in row_order, given numbering, column-major */
    std::vector<int64_t> perm, invp, xsuper, snode, xlindx, lindx, xlnz, xunz, sparent, domain_table;
    std::vector<int64_t> work_order, list_start, list_source, list_rows, ready_start, ready_source, ready_rows, status, cursor, task_start;
    supernodal_structure structure = {};
    work_lists lists = {};

    value_t at(int64_t i, int64_t j) const /* permuted, from 0 */
    {
        return dense[static_cast<size_t>((perm[static_cast<size_t>(i)] - 1) + (perm[static_cast<size_t>(j)] - 1) * n)];
    }
};

namespace small_problem_steps
{

using bits = std::vector<std::vector<char>>;

inline size_t z(int64_t i)
{
    return static_cast<size_t>(i);
}

template <typename value_t>
value_t random_value(std::mt19937 &engine)
{
    std::uniform_real_distribution<double> u(-1, 1);
    const double x = u(engine), y = u(engine);
    if constexpr (is_real<value_t>)
        return static_cast<value_t>(x);
    else
        return value_t(static_cast<typename value_t::value_type>(x), static_cast<typename value_t::value_type>(y));
}

/* part[v]: domain 0..domains-1 of vertex v, or domains for the rest. */
inline std::vector<int64_t> assign_parts(const problem_shape &shape, std::mt19937 &engine)
{
    std::vector<int64_t> part(z(shape.n), 0);
    if (shape.domains > 1)
        for (auto &p : part) p = static_cast<int64_t>(engine() % static_cast<unsigned>(shape.domains + 1));
    return part;
}

template <typename value_t>
void make_matrix(small_problem<value_t> *q, const problem_shape &shape, const std::vector<int64_t> &part, std::mt19937 &engine)
{
    const int64_t n = q->n;
    const matrix_type_row &type = type_of(q->type);
    std::uniform_real_distribution<double> u(0, 1);
    bits entry(z(n), std::vector<char>(z(n), 0));
    std::vector<value_t> full(z(n * n), value_t(0)); /* rows of the matrix as factored */
    for (int64_t i = 0; i < n; ++i) {
        for (int64_t j = 0; j < n; ++j) {
            const bool apart = part[z(i)] != part[z(j)] && part[z(i)] != shape.domains && part[z(j)] != shape.domains;
            if (i == j || apart || (q->symmetric == 1 && j < i) || u(engine) > shape.density) continue;
            const value_t x = random_value<value_t>(engine);
            entry[z(i)][z(j)] = 1;
            full[z(i + j * n)] = x;
            if (q->symmetric == 0) continue;
            entry[z(j)][z(i)] = 1;
            full[z(j + i * n)] = type.hermitian ? conjugate(x) : x;
        }
    }
    for (int64_t i = 0; i < n; ++i) {
        entry[z(i)][z(i)] = 1;
        double sum = 1;
        for (int64_t j = 0; j < n; ++j) sum += std::abs(full[z(i + j * n)]);
        const double d = shape.diagonal < 0 ? sum : shape.diagonal * random_value<double>(engine);
        full[z(i + i * n)] = value_t(static_cast<typename std::decay_t<decltype(std::abs(full[0]))>>(d));
    }
    q->dense = full;
    q->row_order.resize(z(n));
    for (int64_t i = 0; i < n; ++i) q->row_order[z(i)] = i + 1;
    if (shape.shuffle_rows) std::shuffle(q->row_order.begin(), q->row_order.end(), engine);
    std::vector<int64_t> factored_row(z(n)); /* given row -> row as factored */
    for (int64_t i = 0; i < n; ++i) factored_row[z(q->row_order[z(i)] - 1)] = i;
    q->ia = {1};
    for (int64_t given = 0; given < n; ++given) {
        const int64_t i = factored_row[z(given)];
        for (int64_t j = 0; j < n; ++j) {
            if (entry[z(i)][z(j)] == 0 || (q->symmetric == 1 && j < i)) continue;
            q->ja.push_back(j + 1);
            q->a.push_back(full[z(i + j * n)]);
        }
        q->ia.push_back(static_cast<int64_t>(q->ja.size()) + 1);
    }
}

/* Domain by domain, then the rest; inside each by random order. Fills perm, invp and the column ranges of the domains. */
template <typename value_t>
void make_order(small_problem<value_t> *q, const problem_shape &shape, const std::vector<int64_t> &part, std::mt19937 &engine)
{
    std::vector<int64_t> order(z(q->n));
    for (int64_t i = 0; i < q->n; ++i) order[z(i)] = i;
    std::shuffle(order.begin(), order.end(), engine);
    std::stable_sort(order.begin(), order.end(), [&](int64_t x, int64_t y) { return part[z(x)] < part[z(y)]; });
    q->perm.resize(z(q->n));
    q->invp.resize(z(q->n));
    for (int64_t k = 0; k < q->n; ++k) {
        q->perm[z(k)] = order[z(k)] + 1;
        q->invp[z(order[z(k)])] = k + 1;
    }
    for (int64_t d = 0; d < shape.domains; ++d) {
        int64_t first = 0, last = -1;
        for (int64_t k = 0; k < q->n; ++k) {
            if (part[z(order[z(k)])] != d) continue;
            if (last < 0) first = k;
            last = k;
        }
        q->domain_table.push_back(first + 1);
        q->domain_table.push_back(last + 1);
    }
}

/* Pattern of L + L' of the symmetrised matrix, by elimination. */
template <typename value_t>
bits eliminate_pattern(const small_problem<value_t> &q)
{
    const int64_t n = q.n;
    bits l(z(n), std::vector<char>(z(n), 0)); /* l[column][row] */
    for (int64_t i = 0; i < n; ++i)
        for (int64_t p = q.ia[z(q.row_order[z(i)] - 1)]; p < q.ia[z(q.row_order[z(i)])]; ++p) {
            const int64_t r = q.invp[z(i)] - 1, c = q.invp[z(q.ja[z(p - 1)] - 1)] - 1;
            l[z(std::min(r, c))][z(std::max(r, c))] = 1;
        }
    for (int64_t c = 0; c < n; ++c) {
        l[z(c)][z(c)] = 1;
        int64_t parent = c + 1;
        while (parent < n && l[z(c)][z(parent)] == 0) ++parent;
        if (parent == n) continue;
        for (int64_t r = parent; r < n; ++r)
            if (l[z(c)][z(r)] != 0) l[z(parent)][z(r)] = 1;
    }
    return l;
}

template <typename value_t>
void make_supernodes(small_problem<value_t> *q, const problem_shape &shape, const bits &l)
{
    const int64_t n = q->n;
    auto rows_of = [&](int64_t c) {
        std::vector<int64_t> rows;
        for (int64_t r = c; r < n; ++r)
            if (l[z(c)][z(r)] != 0) rows.push_back(r + 1);
        return rows;
    };
    q->xsuper = {1};
    q->snode.assign(z(n), 1);
    q->xlindx = {1};
    q->lindx = rows_of(0);
    std::vector<int64_t> before = q->lindx;
    for (int64_t c = 1; c < n; ++c) {
        const std::vector<int64_t> rows = rows_of(c);
        const int64_t width = c + 1 - q->xsuper.back();
        const bool joins = before.size() == rows.size() + 1 && before[1] == c + 1 && width < shape.panel_columns;
        if (!joins) {
            q->xsuper.push_back(c + 1);
            q->xlindx.push_back(static_cast<int64_t>(q->lindx.size()) + 1);
            q->lindx.insert(q->lindx.end(), rows.begin(), rows.end());
        }
        q->snode[z(c)] = static_cast<int64_t>(q->xsuper.size());
        before = rows;
    }
    q->xsuper.push_back(n + 1);
    q->xlindx.push_back(static_cast<int64_t>(q->lindx.size()) + 1);
    q->xlnz = {1};
    q->xunz = {1};
    const int64_t supernodes = static_cast<int64_t>(q->xsuper.size()) - 1;
    for (int64_t s = 0; s < supernodes; ++s) {
        const int64_t columns = q->xsuper[z(s + 1)] - q->xsuper[z(s)], rows = q->xlindx[z(s + 1)] - q->xlindx[z(s)];
        for (int64_t c = 0; c < columns; ++c) {
            q->xlnz.push_back(q->xlnz.back() + rows);
            q->xunz.push_back(q->xunz.back() + rows - columns);
        }
        q->sparent.push_back(rows > columns ? q->snode[z(q->lindx[z(q->xlindx[z(s)] - 1 + columns)] - 1)] : 0);
    }
    for (size_t d = 0; d < q->domain_table.size(); d += 2) {
        int64_t &first = q->domain_table[d], &last = q->domain_table[d + 1];
        if (last >= first) {
            const int64_t column = last;
            first = q->snode[z(first - 1)];
            last = q->snode[z(column - 1)];
            if (column < n && q->snode[z(column)] == last) --last;
        }
        if (last < first) first = 2, last = 1;
    }
}

/* One entry a (source, target) pair: the targets of each source with the remaining rows. */
template <typename value_t>
std::vector<std::pair<int64_t, int64_t>> targets_of(const small_problem<value_t> &q, int64_t source)
{
    std::vector<std::pair<int64_t, int64_t>> targets;
    const int64_t first = q.xlindx[z(source - 1)] - 1, last = q.xlindx[z(source)] - 1;
    for (int64_t p = first; p < last; ++p) {
        const int64_t target = q.snode[z(q.lindx[z(p)] - 1)];
        if (target != source && (targets.empty() || targets.back().first != target)) targets.emplace_back(target, last - p);
    }
    return targets;
}

/* Tasks of the order 1, 2, ...: whole subtrees of at most four supernodes. */
inline std::vector<int64_t> subtree_tasks(const supernodal_structure &s)
{
    std::vector<int64_t> size(z(s.supernodes), 1), start;
    for (int64_t i = 0; i < s.supernodes; ++i)
        if (s.sparent[i] != 0) size[z(s.sparent[i] - 1)] += size[z(i)];
    for (int64_t i = s.supernodes - 1; i >= 0; --i) {
        int64_t first = i; /* supernodes in a row that all belong to i are its subtree when they are as many */
        while (first > 0 && s.sparent[first - 1] != 0 && s.sparent[first - 1] <= i + 1) --first;
        if (size[z(i)] <= 4 && i - first + 1 >= size[z(i)]) i -= size[z(i)] - 1;
        start.insert(start.begin(), i);
    }
    start.push_back(s.supernodes);
    return start;
}

template <typename value_t>
void make_lists(small_problem<value_t> *q, int64_t two_level)
{
    const int64_t supernodes = q->structure.supernodes, domains = q->structure.domains;
    q->status.assign(z(supernodes), 12345);
    q->work_order.clear();
    for (int64_t s = 1; s <= supernodes; ++s) q->work_order.push_back(s % 3 == 0 ? -s : s);
    int64_t first_top = 1;
    for (int64_t d = 0; d < domains; ++d) first_top = std::max(first_top, q->domain_table[z(2 * d + 1)] + 1);
    if (domains == 1 && q->domain_table[1] < q->domain_table[0]) first_top = 1;
    std::vector<std::vector<std::pair<int64_t, int64_t>>> list(
        z(two_level == 0 ? supernodes : (supernodes - first_top + 1) * (domains + 1)));
    std::vector<int64_t> incoming(z(supernodes), 0);
    for (int64_t s = 1; s <= supernodes; ++s) {
        for (const auto &[target, rows] : targets_of(*q, s)) {
            ++incoming[z(target - 1)];
            if (two_level == 0) {
                list[z(s - 1)].emplace_back(target, rows);
            } else if (target >= first_top) {
                int64_t j = domains;
                for (int64_t d = 0; d < domains; ++d)
                    if (s >= q->domain_table[z(2 * d)] && s <= q->domain_table[z(2 * d + 1)]) j = d;
                list[z((target - first_top) * (domains + 1) + j)].emplace_back(s, rows);
            }
        }
    }
    q->list_start = {1};
    q->list_source.clear();
    q->list_rows.clear();
    for (const auto &one : list) {
        for (const auto &[number, rows] : one) {
            q->list_source.push_back(number);
            q->list_rows.push_back(rows);
        }
        q->list_start.push_back(static_cast<int64_t>(q->list_source.size()) + 1);
    }
    q->ready_start = {1};
    for (const int64_t count : incoming) q->ready_start.push_back(q->ready_start.back() + count);
    q->ready_source.assign(z(q->ready_start.back()), -7);
    q->ready_rows.assign(z(q->ready_start.back()), -7);
    q->cursor.assign(list.size() + 1, -7);
    q->task_start = subtree_tasks(q->structure);
    q->lists = {two_level,
                first_top,
                q->work_order.data(),
                q->list_start.data(),
                q->list_source.data(),
                q->list_rows.data(),
                q->ready_start.data(),
                q->ready_source.data(),
                q->ready_rows.data(),
                q->status.data(),
                q->cursor.data(),
                static_cast<int64_t>(q->task_start.size()) - 1,
                q->task_start.data()};
}

} // namespace small_problem_steps

/* two_level: 0, 1 or 2, for the work lists. */
template <typename value_t>
small_problem<value_t> make_problem(int64_t type, const problem_shape &shape, int64_t two_level = 0)
{
    using namespace small_problem_steps;
    small_problem<value_t> q;
    std::mt19937 engine(shape.seed);
    q.type = type;
    q.n = shape.n;
    q.symmetric = type_of(type).kind == factor_kind::lu ? 0 : 1;
    const std::vector<int64_t> part = assign_parts(shape, engine);
    make_matrix(&q, shape, part, engine);
    make_order(&q, shape, part, engine);
    make_supernodes(&q, shape, eliminate_pattern(q));
    q.structure = {q.n,
                   static_cast<int64_t>(q.xsuper.size()) - 1,
                   q.perm.data(),
                   q.invp.data(),
                   q.xsuper.data(),
                   q.snode.data(),
                   q.xlindx.data(),
                   q.lindx.data(),
                   q.xlnz.data(),
                   q.xunz.data(),
                   q.sparent.data(),
                   q.xlnz.back() - 1,
                   q.xunz.back() - 1,
                   shape.domains,
                   q.domain_table.data()};
    make_lists(&q, two_level);
    return q;
}

/* The arrays of one factorization, with poison wherever the numeric code must not rely on old contents. */
template <typename value_t>
struct factorization {
    std::vector<int64_t> start_l, dest_l, src_l, col_l, start_u, dest_u, src_u, col_u, scratch, thread_rows, pivots;
    std::vector<value_t> lnz, unz, diagonal, diagonal_unscaled, buffer;
    std::vector<int32_t> program;
    position_map map = {};
    factor_store<value_t> store = {};
    factor_input<value_t> input = {};
    factor_result result = {};
};

/* An update program for the structure, in `words` words. */
template <typename value_t>
void add_program(const small_problem<value_t> &q, int64_t words, factorization<value_t> *f)
{
    f->program.assign(static_cast<size_t>(words), -7);
    if (f->program.empty()) return;
    int64_t *const scratch = f->scratch.data();
    const update_program_input in = {q.type, &q.structure, &f->map, words, scratch, scratch + q.n, scratch + 2 * q.n};
    build_update_program(&in, f->program.data());
    f->input.program = f->program.data();
}

/* threads: 0 is one thread along an update program. */
template <typename value_t>
void prepare(const small_problem<value_t> &q, int64_t threads, factorization<value_t> *f, int64_t scaling_on = 0)
{
    const bool along_program = threads == 0;
    if (along_program) threads = 1;
    const size_t n = static_cast<size_t>(q.n), room = q.a.size() + n, one = static_cast<size_t>(1);
    for (auto *v : {&f->start_l, &f->start_u}) v->assign(n + 1, -3);
    for (auto *v : {&f->dest_l, &f->src_l, &f->col_l, &f->dest_u, &f->src_u, &f->col_u}) v->assign(room, -3);
    f->scratch.assign(6 * (n + 1) + 2 * q.a.size() + 16, -3);
    f->map = {f->start_l.data(),
              f->dest_l.data(),
              f->src_l.data(),
              f->col_l.data(),
              f->start_u.data(),
              f->dest_u.data(),
              f->src_u.data(),
              f->col_u.data(),
              0,
              0};
    position_map_input in = {q.type,
                             q.symmetric,
                             scaling_on,
                             q.ia.data(),
                             q.ja.data(),
                             q.symmetric == 1 ? nullptr : q.row_order.data(),
                             &q.structure,
                             f->scratch.data(),
                             f->scratch.data() + n + 1,
                             f->scratch.data() + 2 * (n + 1),
                             f->scratch.data() + 3 * (n + 1),
                             threads};
    build_position_map(&in, &f->map);
    const value_t poison(std::numeric_limits<real_part_t<value_t>>::quiet_NaN());
    f->lnz.assign(static_cast<size_t>(q.structure.nnz_l), poison);
    f->unz.assign(std::max(one, static_cast<size_t>(q.structure.nnz_u)), poison);
    f->pivots.assign(n, -99);
    f->diagonal.assign(n, poison);
    f->diagonal_unscaled.assign(n, poison);
    const int64_t entries = 2 * q.n * q.n + q.n;
    f->buffer.assign(static_cast<size_t>(entries * threads), poison);
    f->thread_rows.assign(static_cast<size_t>(q.structure.supernodes + (2 * threads + 1) * q.n), -3);
    f->store = {f->lnz.data(), f->unz.data(), f->pivots.data(), f->diagonal.data(), f->diagonal_unscaled.data(), nullptr};
    f->input = {};
    f->input.matrix_type = q.type;
    f->input.nproc = threads;
    f->input.single_thread = threads == 1 ? 1 : 0;
    f->input.pivoting = 1;
    f->input.perturbation_exponent = 13;
    f->input.scaling_on = scaling_on;
    f->input.nnz_a = static_cast<int64_t>(q.a.size());
    f->input.a = q.a.data();
    f->input.row_order = q.symmetric == 1 ? nullptr : q.row_order.data();
    f->input.structure = &q.structure;
    f->input.map = &f->map;
    f->input.lists = &q.lists;
    f->input.store = &f->store;
    f->input.thread_rows = f->thread_rows.data();
    f->input.update_buffer = f->buffer.data();
    f->input.buffer_entries = entries;
    if (along_program) add_program(q, update_program_words(q.type, &q.structure), f);
}
