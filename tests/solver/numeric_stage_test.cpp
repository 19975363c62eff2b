/* Order of the numeric work: refinement behind a perturbed factorization, old factors as a preconditioner, the new factorization that a
   failed iteration leaves due. */
#include <gtest/gtest.h>

#include "session.h"
#include "solver/control.h"

namespace
{
control_block *control_of(session *s)
{
    return static_cast<solver_state *>(s->handle[slot_state])->control;
}

void change_values(session *s, double share)
{
    for (size_t p = 0; p < s->values.size(); ++p) s->values[p] *= 1.0 + share * static_cast<double>(p % 5);
    s->load();
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

TEST(numeric_stage, requested_refinement_runs_in_its_own_run)
{
    for (const int64_t request : {1, 3, -2}) {
        for (const int64_t type : {2, 13}) {
            session s;
            load_with_defaults(&s, type);
            s.parameter(iparam_refinement_request) = request;
            for (const int64_t ido : {13, 33, 23}) {
                s.load();
                ASSERT_EQ(s.call(ido), 0);
                EXPECT_GE(s.parameter(iparam_refinement_done), 1);
                EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-14);
            }
        }
    }
}

TEST(numeric_stage, old_factors_precondition_new_values)
{
    for (const int64_t type : {2, 11, 6}) {
        for (const int64_t overwrite : {0, 1}) {
            session s;
            load_with_defaults(&s, type);
            ASSERT_EQ(s.call(12), 0);
            change_values(&s, 0.01);
            s.parameter(iparam_hybrid) = type == 2 ? -102 : -101;
            s.parameter(iparam_overwrite_rhs) = overwrite;
            ASSERT_EQ(s.call(33), 0);
            EXPECT_GT(s.parameter(iparam_hybrid_result), 0);
            EXPECT_LT(backward_error(&s, s.unpack(overwrite == 1 ? s.b : s.x)), 1e-8);
        }
    }
}

TEST(numeric_stage, negative_mode_without_factors_factors_first)
{
    session s;
    load_with_defaults(&s, 2);
    s.parameter(iparam_hybrid) = -102;
    ASSERT_EQ(s.call(13), 0);
    EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-9);
    EXPECT_GT(s.parameter(iparam_positive_pivots), 0);
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

TEST(numeric_stage, single_steps_compose_to_the_solve)
{
    for (const int64_t type : {2, -2, 4, 6, 11}) {
        session s;
        load_with_defaults(&s, type);
        ASSERT_EQ(s.call(12), 0);
        s.parameter(iparam_perturbed_pivots) = 0;
        for (const int64_t ido : {331, 332, 333}) {
            ASSERT_EQ(s.call(ido), 0);
            s.b = s.x;
        }
        EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-13) << type;
    }
}
