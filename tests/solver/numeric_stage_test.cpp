/* Order of the numeric work: refinement behind a perturbed factorization, the new factorization that a failed iteration leaves due; matched
   and scaled types under every scheme. */
#include <gtest/gtest.h>

#include "session.h"
#include "solver/control.h"

namespace
{
control_block *control_of(session *s)
{
    return static_cast<solver_state *>(s->handle[slot_state])->control;
}

void load_with_defaults(session *s, int64_t type)
{
    load_grid(s, type, 10);
    iparam_defaults(s->iparam, type);
}
} // namespace

TEST(numeric_stage, perturbed_pivots_are_repaired_and_reported)
{
    for (const int64_t overwrite : {0, 1}) {
        session s;
        load_with_defaults(&s, -2);
        s.parameter(iparam_pivoting) = 0;
        s.parameter(iparam_perm_mode) = 1;
        s.parameter(iparam_overwrite_rhs) = overwrite;
        for (int64_t i = 0; i < s.neqns; ++i) s.perm[static_cast<size_t>(i)] = i + 1;
        s.values[0] = 0.0; /* the first pivot in the given order */
        s.load();
        ASSERT_EQ(s.call(13), 0);
        EXPECT_EQ(s.parameter(iparam_perturbed_pivots), 1);
        EXPECT_GE(s.parameter(iparam_refinement_done), 1);
        EXPECT_LE(s.parameter(iparam_refinement_done), 2);
        EXPECT_LT(backward_error(&s, s.unpack(overwrite == 1 ? s.b : s.x)), 1e-12);
        s.parameter(iparam_perturbed_pivots) = 0;
        s.load();
        ASSERT_EQ(s.call(33), 0);
        EXPECT_GE(s.parameter(iparam_refinement_done), 1) << "the count stays with the factors";
    }
}

TEST(numeric_stage, failed_iteration_makes_the_next_solve_factor)
{
    session s;
    load_with_defaults(&s, 11);
    ASSERT_EQ(s.call(12), 0);
    for (size_t p = 0; p < s.values.size(); ++p) s.values[p] *= p % 2 == 0 ? -7.0 : 1.0 + static_cast<double>(p % 3);
    s.load();
    s.parameter(iparam_hybrid) = -601; /* a tolerance out of reach */
    s.msglvl = 1;
    const std::string text = s.printed(33);
    ASSERT_EQ(s.error, -4);
    EXPECT_LT(s.parameter(iparam_hybrid_result), 0);
    EXPECT_NE(text.find("*** Error in SOLVARA: cgs error iparam(20) -"), std::string::npos);
    EXPECT_EQ(control_of(&s)->refactor_pending, 1);
    s.msglvl = 0;
    s.parameter(iparam_hybrid) = 0;
    s.load();
    ASSERT_EQ(s.call(33), 0);
    EXPECT_EQ(control_of(&s)->refactor_pending, 0);
    EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-12);
}

TEST(numeric_stage, matched_and_scaled_types_with_threads_and_schemes)
{
    for (const int64_t type : {-2, -4, 6, 11, 13})
        for (const int64_t scheme : {0, 1, 2, 3})
            for (const int64_t matching : {0, 1, 2}) {
                SCOPED_TRACE(std::to_string(type) + " " + std::to_string(scheme) + " " + std::to_string(matching));
                session s;
                load_grid(&s, type, 20, 2);
                iparam_defaults(s.iparam, type);
                s.parameter(iparam_matching) = matching;
                s.parameter(iparam_scaling) = matching > 0 ? 1 : 0;
                s.parameter(iparam_preprocessing) = scheme == 3 ? 0 : 2;
                s.parameter(iparam_scheme) = scheme == 1 ? 1 : 0;
                s.parameter(iparam_reproducible_units) = scheme == 2 ? 4 : 0;
                for (size_t p = 0; p < s.values.size(); p += 3) s.values[p] *= 1e3; /* something to scale */
                s.load();
                for (const int64_t ido : {13, 22, 33}) ASSERT_EQ(s.call(ido), 0);
                /* without matching the pivots are taken inside their blocks as they come */
                EXPECT_LT(backward_error(&s, s.unpack(s.x)), matching > 0 ? 1e-12 : 1e-10);
            }
}

/* So many rows that they come in and go out in pieces: fails when an ancestor comes in late or twice, or a row leaves before it is final.
 */
TEST(numeric_stage, many_vectors_on_a_large_grid)
{
    for (const int64_t type : {2, -2, 6, 11}) {
        session s;
        load_grid(&s, type, 55, 35);
        iparam_defaults(s.iparam, type);
        s.parameter(iparam_overwrite_rhs) = type == 2 ? 1 : 0;
        ASSERT_EQ(s.call(13), 0);
        EXPECT_LT(backward_error(&s, s.unpack(type == 2 ? s.b : s.x)), 1e-13) << type;
    }
}
