/* Windows on marked unknowns against the full solve of the same system, and what refinement may do with them. */
#include <gtest/gtest.h>

#include "systems.h"

namespace
{
constexpr int64_t n = 7 * 8 * 9;

bool is_marked(size_t i)
{
    return i % 23 == 5 || i / 50 == 4;
}

void mark(session *s, int64_t window)
{
    for (size_t i = 0; i < s->perm.size(); ++i) s->perm[i] = is_marked(i) ? 1 : 0;
    s->parameter(iparam_partial_solve) = window;
}
} // namespace

TEST(window, marked_unknowns_are_those_of_the_full_solve)
{
    for (const int64_t type : all_matrix_types)
        for (const bool zero_based : {false, true})
            for (const int64_t nb : {1, 4}) {
                SCOPED_TRACE(testing::Message() << "type " << type << " base " << !zero_based << " nb " << nb);
                const entry_map a = generated_entries(type > 10 ? type - 10 : type, 7, 8, 9, 5);
                session s;
                iparam_defaults(s.iparam, type);
                load_entries(&s, type, n, a, nb, 4);
                mark(&s, 3);
                if (zero_based) s.to_zero_based();
                ASSERT_EQ(s.call(13), 0);
                const auto part = s.unpack(s.x);
                s.parameter(iparam_partial_solve) = 0;
                s.load();
                ASSERT_EQ(s.call(33), 0);
                const auto full = s.unpack(s.x);
                EXPECT_LE(backward_error(a, 0, n, s.rhs, full), 1e-13); /* neither matching nor refinement: the factors may grow */
                double largest = 0;
                for (const auto &v : full) largest = std::max(largest, std::abs(v));
                for (size_t i = 0; i < full.size(); ++i) {
                    if (is_marked(i % static_cast<size_t>(n))) { ASSERT_LE(std::abs(part[i] - full[i]), 1e-14 * largest) << i; }
                }
                /* a right-hand side that lives on marked rows alone goes in through windows 1 and 2 */
                for (size_t i = 0; i < s.rhs.size(); ++i)
                    if (!is_marked(i % static_cast<size_t>(n))) s.rhs[i] = 0;
                s.load();
                ASSERT_EQ(s.call(33), 0);
                const auto local = s.unpack(s.x);
                for (const int64_t window : {1, 2}) {
                    s.parameter(iparam_partial_solve) = window;
                    s.load();
                    ASSERT_EQ(s.call(33), 0);
                    const auto x = s.unpack(s.x);
                    for (size_t i = 0; i < x.size(); ++i) {
                        if (window == 2 || is_marked(i % static_cast<size_t>(n))) { ASSERT_LE(std::abs(x[i] - local[i]), 1e-14 * largest); }
                    }
                }
            }
}

/* Perturbed pivots, or a request made after the analysis: the rows that a window hides hold nothing to refine. */
TEST(window, no_refinement_of_what_was_not_computed)
{
    session s;
    iparam_defaults(s.iparam, 2);
    load_entries(&s, 2, n, generated_entries(2, 7, 8, 9, 5), 1, 4);
    mark(&s, 3);
    ASSERT_EQ(s.call(12), 0);
    for (const int64_t window : {1, 2, 3}) {
        s.parameter(iparam_partial_solve) = window;
        s.parameter(iparam_perturbed_pivots) = 5;
        s.load(); /* x poisoned with NaN */
        ASSERT_EQ(s.call(33), 0);
        EXPECT_EQ(s.parameter(iparam_refinement_done), 0);
        s.parameter(iparam_refinement_request) = -3;
        s.load();
        ASSERT_EQ(s.call(33), 0);
        EXPECT_EQ(s.parameter(iparam_refinement_done), 0);
        s.parameter(iparam_refinement_request) = 0;
    }
    s.parameter(iparam_partial_solve) = 4; /* nothing is hidden */
    s.parameter(iparam_perturbed_pivots) = 5;
    ASSERT_EQ(s.call(33), 0);
    EXPECT_EQ(s.parameter(iparam_refinement_done), 2);
}
