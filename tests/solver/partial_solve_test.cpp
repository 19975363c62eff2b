/* Marked unknowns are ordered last. */
#include <algorithm>
#include <gtest/gtest.h>

#include "failure_harness.h"
#include "session.h"
#include "solver/control.h"

namespace
{
bool is_marked(int64_t row)
{
    return row % 11 == 4 || row == 0;
}

void mark(session *s)
{
    for (int64_t i = 0; i < s->neqns; ++i) s->perm[static_cast<size_t>(i)] = is_marked(i) ? 1 : 0;
    s->parameter(iparam_partial_solve) = 3; /* the whole right-hand side goes in, the marked unknowns come out */
}

/* The ordering is a bijection of the caller's numbers that ends with the marked rows in their order. */
void expect_marked_last(session *s, int64_t base)
{
    std::vector<int64_t> marked, sorted = s->perm;
    for (int64_t i = 0; i < s->neqns; ++i) {
        if (is_marked(i)) marked.push_back(i + base);
    }
    EXPECT_EQ(s->parameter(iparam_partial_window), static_cast<int64_t>(marked.size()));
    EXPECT_EQ(s->parameter(iparam_perm_mode), 1);
    EXPECT_TRUE(std::equal(marked.begin(), marked.end(), s->perm.end() - static_cast<int64_t>(marked.size())));
    std::sort(sorted.begin(), sorted.end());
    for (int64_t i = 0; i < s->neqns; ++i) EXPECT_EQ(sorted[static_cast<size_t>(i)], i + base);
}
} // namespace

TEST(partial_solve, marked_unknowns_come_last)
{
    for (const int64_t type : {1, 2, -2, 4, 11, 13})
        for (const bool zero_based : {false, true}) {
            SCOPED_TRACE(std::to_string(type) + (zero_based ? " from 0" : " from 1"));
            session s;
            load_grid(&s, type, 9);
            iparam_defaults(s.iparam, type);
            mark(&s);
            if (zero_based) s.to_zero_based();
            ASSERT_EQ(s.call(11), 0);
            expect_marked_last(&s, zero_based ? 0 : 1);
        }
}

TEST(partial_solve, all_none_and_other_requests)
{
    session s;
    load_grid(&s, 2, 6);
    iparam_defaults(s.iparam, 2);
    s.parameter(iparam_partial_solve) = 1;
    ASSERT_EQ(s.call(11), 0) << "no row is marked";
    EXPECT_EQ(s.parameter(iparam_partial_window), 0);
    std::fill(s.perm.begin(), s.perm.end(), 1);
    EXPECT_EQ(s.call(11), -1) << "no row is free";
    iparam_defaults(s.iparam, 2);
    s.parameter(iparam_partial_solve) = 1;
    s.parameter(iparam_refinement_request) = 1;
    EXPECT_EQ(s.call(11), 0) << "refinement shuts it off";
    EXPECT_EQ(s.perm[3], 1);
    EXPECT_EQ(s.parameter(iparam_perm_mode), 0);
}

TEST(partial_solve, failing_allocations_leave_the_marks)
{
    const service_memory before = memory_in_use();
    const int64_t failed = for_every_failing_allocation([](int64_t) {
        session s;
        load_grid(&s, 2, 6);
        iparam_defaults(s.iparam, 2);
        mark(&s);
        const auto marks = s.perm;
        const int64_t request[] = {s.neqns};
        int64_t error = 0;
        partial_solve_ordering(request[0], s.iparam, s.ja.data(), s.ia.data(), s.perm.data(), &error);
        allocation_failure::disarm();
        EXPECT_EQ(error, allocation_failure::fired() ? -2 : 0);
        if (error != 0) { EXPECT_EQ(s.perm, marks); }
    });
    EXPECT_GT(failed, 10);
    EXPECT_EQ(memory_in_use().direct_blocks, before.direct_blocks);
}
