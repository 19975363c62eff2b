/* Elimination tree, counts, supernodes, row lists and the tables made from them, against a naive symbolic factorization. */
#include <cstdlib>

#include <gtest/gtest.h>

#include "service/service.h"
#include "state/matrix_types.h"
#include "symbolic_support.h"

static size_t at(int64_t number)
{
    return static_cast<size_t>(number - 1);
}

static void expect_tree_and_partition(const analysis_run &run, const std::vector<words> &l)
{
    int64_t total = 0, width = 0, current = 0, longest = 0, chain = 0, size = 0;
    for (int64_t j = 1; j <= run.g.n; ++j) {
        const int64_t entries = static_cast<int64_t>(l[at(j)].size()) + 1;
        ASSERT_EQ(run.parent[at(j)], l[at(j)].empty() ? 0 : l[at(j)][0]) << j;
        ASSERT_EQ(run.colcnt[at(j)], entries) << j;
        total += entries;
        const bool chained = j > 1 && run.parent[at(j - 1)] == j && entries + 1 == run.colcnt[at(j - 1)];
        chain = chained ? chain + 1 : 1;
        longest = std::max(longest, chain);
        if (chained && width < run.control.panel_columns) {
            ++width;
        } else {
            width = 1;
            size += entries;
            ASSERT_EQ(run.xsuper[at(++current)], j);
        }
        ASSERT_EQ(run.snode[at(j)], current);
    }
    EXPECT_EQ(run.xsuper[at(current + 1)], run.g.n + 1);
    EXPECT_EQ(run.control.supernodes, current);
    EXPECT_EQ(run.control.lindx_size, size);
    EXPECT_EQ(run.control.largest_supernode, longest);
    EXPECT_EQ(run.control.l_entries, total);
}

static void expect_lists(const analysis_run &run, const std::vector<words> &l)
{
    const int64_t supernodes = run.control.supernodes;
    const supernodal_structure s = run.view();
    int64_t bound = 0, next_l = 1, next_u = 1, longest = 0;
    for (int64_t number = 1; number <= supernodes; ++number) {
        const int64_t first = run.xsuper[at(number)], columns = supernode_columns(s, number), rows = supernode_rows(s, number);
        words expected{first};
        expected.insert(expected.end(), l[at(first)].begin(), l[at(first)].end());
        const int64_t *list = supernode_row_list(s, number);
        ASSERT_EQ(words(list, list + rows), expected) << number;
        ASSERT_EQ(run.sparent[at(number)], rows > columns ? run.snode[at(list[columns])] : 0);
        for (int64_t j = first; j < run.xsuper[at(number + 1)]; ++j, next_l += rows, next_u += rows - columns) {
            ASSERT_EQ(run.xlnz[at(j)], next_l);
            ASSERT_EQ(run.xunz[at(j)], next_u);
            ASSERT_EQ(run.parent[at(j)], l[at(j)].empty() ? 0 : l[at(j)][0]);
        }
        std::set<int64_t> targets;
        for (int64_t k = columns; k < rows; ++k) {
            const int64_t target = run.snode[at(list[k])];
            if (!targets.insert(target).second) continue;
            const int64_t run_length = std::count_if(list + k, list + rows, [&](int64_t i) { return run.snode[at(i)] == target; });
            bound = std::max(bound, (rows - k) * run_length - run_length * (run_length - 1) / 2);
        }
        bound = std::max(bound, columns * (rows - columns));
        longest = std::max(longest, rows);
        ASSERT_EQ(run.update_count[at(number)], static_cast<int64_t>(targets.size()));
        const int64_t top = run.xsuper[at(first_top_supernode(&s))];
        ASSERT_EQ(run.separator_tail[at(number)], std::count_if(list, list + rows, [&](int64_t i) { return i >= top; }));
        ASSERT_EQ(run.sentinel_a[at(number)], work_sentinel);
        ASSERT_EQ(run.sentinel_b[at(number)], work_sentinel);
    }
    EXPECT_EQ(run.control.nnz_l, next_l - 1);
    EXPECT_EQ(run.control.nnz_u, run.control.symmetric_structure == 1 ? 1 : std::max<int64_t>(1, next_u - 1));
    EXPECT_EQ(run.control.longest_column, longest);
    const int64_t factor = run.control.matrix_type == 6 || run.control.matrix_type < 0 ? 4 : 2;
    EXPECT_EQ(run.control.update_size, factor * (bound == 0 ? run.g.n : bound));
    EXPECT_EQ(run.control.growth_numerator, run.control.update_size);
    EXPECT_EQ(run.control.growth_denominator, factor);
}

static void expect_order(const analysis_run &run, const words &order)
{
    words place(order.size(), 0);
    std::set<int64_t> parents(run.sparent.begin(), run.sparent.end());
    for (size_t k = 0; k < order.size(); ++k) {
        const int64_t s = std::abs(order[k]);
        ASSERT_TRUE(s >= 1 && s <= run.control.supernodes && place[at(s)] == 0) << "at " << k;
        ASSERT_EQ(order[k] < 0, parents.count(s) == 0);
        place[at(s)] = static_cast<int64_t>(k) + 1;
    }
    for (int64_t s = 1; s <= run.control.supernodes; ++s)
        ASSERT_TRUE(run.sparent[at(s)] == 0 || place[at(s)] < place[at(run.sparent[at(s)])]) << s;
}

static void expect_all(analysis_run *run)
{
    ASSERT_EQ(run->result, 0);
    const std::vector<words> l = naive_factor(run->g, run->perm, run->invp);
    expect_tree_and_partition(*run, l);
    ASSERT_EQ(run->symbolic(), 0);
    expect_lists(*run, l);
    expect_order(*run, run->work_order);
}

TEST(symbolic_structure, equals_a_naive_symbolic_factorization_of_random_patterns)
{
    const int64_t types[] = {1, 2, -2, 3, 4, -4, 6, 11, 13};
    uint32_t seed = 1;
    for (const int64_t n : {1, 2, 3, 7, 40, 150, 400}) {
        for (const double density : {0.0, 0.6, 1.0, 3.0}) {
            for (const int64_t panel : {1, 3, 64}) {
                SCOPED_TRACE(testing::Message() << n << " " << density << " " << panel);
                ++seed;
                analysis_run run(random_graph(n, density, seed), random_order(n, seed), 1, panel, types[seed % 9]);
                expect_all(&run);
            }
        }
    }
    analysis_run large(random_graph(3000, 1.2, 77), random_order(3000, 78), 2, 80);
    expect_all(&large);
}

TEST(symbolic_structure, equals_it_with_domains_in_parallel)
{
    for (const int64_t domains : {1, 2, 4, 8, 16, 32}) {
        for (const int64_t side : {3, 9, 40}) {
            if (domains > side * side) continue;
            SCOPED_TRACE(testing::Message() << side << " " << domains);
            analysis_run run(grid_graph(side), grid_order(side, domains), 4, 8, 11);
            EXPECT_EQ(run.control.domains, domains); /* also with empty leaves: nothing falls back to one domain */
            expect_all(&run);
        }
    }
}

TEST(symbolic_structure, cuts_a_dense_matrix_into_panels_whose_lists_are_suffixes)
{
    std::set<std::pair<int64_t, int64_t>> edges;
    for (int64_t i = 1; i <= 300; ++i)
        for (int64_t j = 1; j < i; ++j) edges.insert({i, j});
    analysis_run run(graph_of(300, edges), natural_order(300), 1, 128);
    expect_all(&run);
    EXPECT_EQ(run.control.supernodes, 3);
    EXPECT_EQ(words(run.xsuper.begin(), run.xsuper.begin() + 4), (words{1, 129, 257, 301}));
    EXPECT_EQ(run.control.largest_supernode, 300);
    EXPECT_EQ(run.control.lindx_size, 300 + 172 + 44);
    EXPECT_TRUE(std::equal(run.lindx.begin() + 300, run.lindx.begin() + 472, run.lindx.begin() + 128));
}

TEST(symbolic_structure, refuses_positions_past_the_limit_and_lists_that_do_not_match_their_counts)
{
    analysis_run run(random_graph(50, 1.5, 3), random_order(50, 4), 1, 64);
    const words good = run.colcnt;
    run.colcnt[0] = int64_t{1} << 60; /* two such columns pass the limit */
    run.colcnt[at(run.xsuper[1])] = (int64_t{1} << 60) - 50;
    EXPECT_EQ(run.symbolic(), -182);
    EXPECT_EQ(run.control.internal_code, -182);
    /* the limit itself: 2^61 - 3 - n, reached from 1 */
    const words xsuper{1, 2}, table{1, 1, 2, 1};
    words count{2305843009213693949 - 1 - 1}, xlnz(2), xunz(2);
    EXPECT_EQ(column_pointers(1, 1, 1, table.data(), xsuper.data(), count.data(), xlnz.data(), xunz.data()), 0);
    EXPECT_EQ(xlnz[1], 1 + count[0]);
    ++count[0];
    EXPECT_EQ(column_pointers(1, 1, 1, table.data(), xsuper.data(), count.data(), xlnz.data(), xunz.data()), -20);

    for (const int64_t wrong : {-1, 1}) {
        run.colcnt = good;
        const int64_t last = run.control.supernodes;
        run.colcnt[at(run.xsuper[at(last - 1)])] += wrong;
        run.lindx.resize(run.lindx.size() + 8);
        EXPECT_EQ(run.symbolic(), -180);
    }
}

TEST(symbolic_domains, table_goes_over_to_supernode_numbers)
{
    const words snode{1, 1, 2, 2, 3, 4, 4, 5}; /* 8 columns, 5 supernodes */
    struct {
        words columns, supernodes;
    } cases[] = {
        {{1, 2, 3, 5, 6, 8, 6, 8}, {1, 1, 2, 3, 4, 5, 4, 5}},
        {{1, 3, 5, 6, 7, 8, 7, 8}, {1, 1, 3, 3, 4, 5, 4, 5}},  /* ends inside a supernode: it belongs to what follows */
        {{1, 1, 9, 8, 1, 8, -1, 0}, {2, 1, 2, 1, 1, 5, 2, 1}}, /* all of a supernode lost, words out of range */
        {{1, 7, 8, 8}, {1, 4, 5, 5}},                          /* one domain */
        {{1, 5, 6, 5, 6, 8, 2, 1}, {1, 3, 4, 3, 4, 5, 2, 1}},  /* an empty last domain does not pull the top down */
    };
    for (auto &c : cases) {
        translate_table(8, 5, static_cast<int64_t>(c.columns.size()) / 4, snode.data(), c.columns.data());
        EXPECT_EQ(c.columns, c.supernodes);
    }
}

TEST(symbolic_domains, a_table_of_dependent_domains_falls_back_to_one)
{
    ordering order = grid_order(12, 4);
    for (const int spoilt : {0, 1, 2}) {
        ordering bad = order;
        if (spoilt == 0) bad.perm = random_order(144, 9).perm;
        if (spoilt == 1) bad.table = {1, 100, 50, 120, 121, 130, 131, 140, 141, 144, 1, 1, 1, 1, 1, 1}; /* overlap */
        if (spoilt == 2) bad.table[2] += 3;                                                             /* a gap */
        analysis_run run(grid_graph(12), bad, 2, 8);
        EXPECT_EQ(run.control.domains, 1);
        EXPECT_EQ(run.table[3], run.control.supernodes);
        EXPECT_EQ(run.table[1] + 1, run.table[2]);
        expect_all(&run);
    }
    for (const int64_t n : {1, 2}) { /* the smallest tables of one domain */
        analysis_run run(random_graph(n, 2, 1), natural_order(n), 2, 8);
        expect_all(&run);
        EXPECT_EQ(run.control.nnz_l, n * n);
    }
}

/* Operations of a dense elimination that skips what is structurally zero. */
static double eliminate(const graph &g, const words &perm, const words &invp, bool lu, bool complex)
{
    double products = 0, sums = 0;
    for (const words &rows : naive_factor(g, perm, invp)) {
        for (size_t i = 0; i < rows.size(); ++i) {
            products += 1; /* l(i, k) = a(i, k) / pivot */
            for (size_t j = 0; j < rows.size(); ++j)
                if (lu || j <= i) products += 1, sums += 1;
        }
    }
    return complex ? 6 * products + 2 * sums : products + sums;
}

TEST(symbolic_counts, operations_are_those_of_an_elimination_for_every_type)
{
    for (const matrix_type_row &type : matrix_type_rows) {
        analysis_run run(random_graph(60, 1.6, 21), random_order(60, 22), 1, 5, type.code);
        ASSERT_EQ(run.symbolic(), 0);
        const supernodal_structure s = run.view();
        const double expected = eliminate(run.g, run.perm, run.invp, type.kind == factor_kind::lu, type.element_words == 2);
        EXPECT_NEAR(operation_count(&s, type.code), expected * 1e-6, 1e-12 * expected);
    }
}

/* ---- work lists ---- */

struct built_lists {
    words order, ready, start, source, rows, tasks;
};

static built_lists build(analysis_run *run)
{
    const supernodal_structure s = run->view();
    work_list_sizes(&run->control, &s);
    const size_t supernodes = run->sparent.size(), updates = static_cast<size_t>(run->control.task_count);
    const size_t lists = run->control.two_level == 0 ? supernodes : static_cast<size_t>((s.domains + 1) * run->control.task_bound);
    built_lists b{run->work_order,    words(supernodes + 1, -7), words(lists + 1, -7),
                  words(updates, -7), words(updates, -7),        words(supernodes + 2, -7)};
    work_list_arrays a{b.order.data(), b.ready.data(), b.start.data(),          b.source.data(),
                       b.rows.data(),  b.tasks.data(), run->update_count.data()};
    build_work_lists(&run->control, &s, &a);
    return b;
}

/* All updates (source, target, remaining rows) by looking at every row. */
static std::vector<words> all_updates(const analysis_run &run)
{
    std::vector<words> updates;
    const supernodal_structure s = run.view();
    for (int64_t number = 1; number <= s.supernodes; ++number) {
        const int64_t *list = supernode_row_list(s, number), rows = supernode_rows(s, number);
        for (int64_t k = 1, last = number; k < rows; ++k) {
            if (run.snode[at(list[k])] == last) continue;
            last = run.snode[at(list[k])];
            updates.push_back({number, last, rows - k});
        }
    }
    return updates;
}

/* Tasks cover the order; one of several supernodes has consecutive numbers, and no other supernode updates it unless they were one. */
static void expect_tasks(const analysis_run &run, const built_lists &b)
{
    const int64_t supernodes = run.control.supernodes, tasks = b.tasks[0];
    ASSERT_GE(tasks, 1);
    EXPECT_EQ(b.tasks[1], 0);
    const std::vector<words> updates = all_updates(run);
    ASSERT_EQ(b.tasks[at(tasks + 2)], supernodes);
    for (int64_t t = 1; t <= tasks; ++t) {
        const int64_t from = b.tasks[at(t + 1)], to = b.tasks[at(t + 2)];
        ASSERT_LT(from, to);
        const int64_t first = std::abs(b.order[at(from + 1)]), last = std::abs(b.order[at(to)]);
        ASSERT_EQ(last - first, to - from - 1);
        for (int64_t k = from; k < to; ++k) ASSERT_EQ(std::abs(b.order[at(k + 1)]), first + k - from);
        bool were_one = true;
        for (int64_t number = first; number < last; ++number) were_one = were_one && continues_in_next(run.view(), number);
        for (const words &update : updates) ASSERT_TRUE(were_one || update[1] < first || update[1] > last || update[0] >= first);
    }
}

TEST(symbolic_work_lists, single_level_lists_hold_every_update_once_and_the_order_respects_them)
{
    for (const int64_t domains : {1, 2, 4, 8, 16, 32}) {
        analysis_run run(grid_graph(30), grid_order(30, domains), domains, 4);
        ASSERT_EQ(run.symbolic(), 0);
        run.control.two_level = 0;
        const built_lists b = build(&run);
        EXPECT_EQ(run.control.subgraphs, domains);
        EXPECT_EQ(run.control.parallel_list_size, run.control.task_count);
        std::vector<words> found;
        words received(run.sparent.size(), 0);
        for (int64_t s = 1; s <= run.control.supernodes; ++s) {
            for (int64_t p = b.start[at(s)]; p < b.start[at(s + 1)]; ++p) {
                found.push_back({s, b.source[at(p)], b.rows[at(p)]});
                ++received[at(b.source[at(p)])];
            }
        }
        EXPECT_EQ(found, all_updates(run));
        for (int64_t s = 1; s <= run.control.supernodes; ++s) ASSERT_EQ(b.ready[at(s + 1)] - b.ready[at(s)], received[at(s)]);
        EXPECT_EQ(b.ready[0], 1);
        expect_order(run, b.order);
        expect_tasks(run, b);
    }
}

TEST(symbolic_work_lists, two_level_lists_hold_every_update_of_the_top_by_domain)
{
    for (const int64_t domains : {1, 2, 4, 8, 16, 32}) {
        analysis_run run(grid_graph(30), grid_order(30, domains), domains, 4);
        ASSERT_EQ(run.symbolic(), 0);
        run.control.two_level = 1;
        const built_lists b = build(&run);
        const supernodal_structure s = run.view();
        const int64_t top = first_top_supernode(&s), width = domains + 1;
        ASSERT_EQ(run.control.task_bound, run.control.supernodes - top + 1);
        std::vector<words> found, expected;
        for (int64_t l = 1; l <= width * run.control.task_bound; ++l) {
            const int64_t j = (l - 1) % width + 1, target = top + (l - 1) / width;
            for (int64_t p = b.start[at(l)]; p < b.start[at(l + 1)]; ++p) {
                const int64_t source = b.source[at(p)];
                if (j <= domains)
                    EXPECT_TRUE(source >= run.table[at(2 * j - 1)] && source <= run.table[at(2 * j)]);
                else
                    EXPECT_GE(source, top);
                EXPECT_TRUE(p == b.start[at(l)] || b.source[at(p - 1)] < source);
                found.push_back({source, target, b.rows[at(p)]});
            }
        }
        for (const words &update : all_updates(run))
            if (update[1] >= top) expected.push_back(update);
        std::sort(found.begin(), found.end());
        EXPECT_EQ(found, expected);
        EXPECT_EQ(b.start[0], 1);
        expect_order(run, b.order);
    }
}

static void *no_memory(uint64_t)
{
    return nullptr;
}

TEST(symbolic_work_lists, order_is_valid_for_any_tree_and_without_memory)
{
    for (const uint32_t seed : {1U, 2U, 3U, 4U, 5U, 6U}) {
        analysis_run run(random_graph(700, 0.4 + 0.2 * seed, seed), random_order(700, seed), 1 + seed, 3);
        ASSERT_EQ(run.symbolic(), 0);
        expect_order(run, build(&run).order);
        const service_system_allocator before = service_system;
        service_system.allocate = no_memory;
        const words kept = build(&run).order;
        service_system = before;
        EXPECT_EQ(kept, run.work_order);
    }
}
