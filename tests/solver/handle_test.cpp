/* The life of a handle: states, stored factorizations, two handles at once, what a later call may change. */
#include <gtest/gtest.h>

#include "session.h"
#include "solver/control.h"

namespace
{
control_block *control_of(session *s)
{
    return static_cast<solver_state *>(s->handle[slot_state])->control;
}

double solve_error(session *s)
{
    s->load();
    return s->call(33) == 0 ? backward_error(s, s->unpack(s->x)) : 1e300;
}
} // namespace

TEST(handle, states_follow_the_calls)
{
    const service_memory before = memory_in_use();
    session s;
    load_grid(&s, 11, 7);
    EXPECT_EQ(s.call(-1), 0) << "empty";
    EXPECT_EQ(s.call(0), -1) << "empty, and no shortcut before";
    EXPECT_NE(s.handle[slot_state], nullptr) << "the record stays";
    EXPECT_EQ(s.call(-1), 0);
    EXPECT_EQ(memory_in_use().direct_blocks, before.direct_blocks) << "the record of the refusal is given back";

    s.parameter(iparam_use_defaults) = 0;
    EXPECT_EQ(s.call(11), 0);
    EXPECT_EQ(s.call(33), -1) << "analysed, not factored";
    EXPECT_EQ(s.call(22), 0);
    EXPECT_EQ(s.call(33), 0);
    EXPECT_EQ(s.call(14), -1) << "no such chain";
    EXPECT_LT(solve_error(&s), 1e-13) << "a refusal leaves the factors";
    EXPECT_EQ(s.call(0), 0);
    EXPECT_EQ(s.call(33), -1) << "released";
    EXPECT_EQ(s.call(23), 0);
    EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-13);
    EXPECT_EQ(s.call(11), 0) << "a full reset";
    EXPECT_EQ(s.call(33), -1);
    EXPECT_EQ(s.call(-1), 0);
    for (const void *slot : s.handle) EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(memory_in_use().direct_blocks, before.direct_blocks);
}

TEST(handle, a_store_shrinks_but_does_not_grow_without_an_analysis)
{
    session s;
    s.max_fac_store = 3;
    load_grid(&s, 2, 9);
    ASSERT_EQ(s.call(12), 0);
    s.max_fac_store = 2;
    EXPECT_EQ(s.call(33), 0);
    s.max_fac_store = 3;
    EXPECT_EQ(s.call(33), -1);
    s.max_fac_store = s.matrix_number = 5;
    EXPECT_EQ(s.call(13), 0);
}

TEST(handle, two_handles_do_not_disturb_each_other)
{
    session one, two;
    load_grid(&one, 2, 10);
    load_grid(&two, 13, 6, 2);
    ASSERT_EQ(one.call(12), 0);
    ASSERT_EQ(two.call(13), 0);
    EXPECT_LT(solve_error(&one), 1e-13);
    ASSERT_EQ(one.call(-1), 0);
    EXPECT_LT(solve_error(&two), 1e-13);
}

TEST(handle, later_calls_keep_the_type_or_change_its_sign)
{
    session s;
    load_grid(&s, 2, 9);
    ASSERT_EQ(s.call(11), 0);
    s.nb = 0;
    EXPECT_EQ(s.call(23), 0) << "nothing to solve";
    s.nb = 1;
    s.parameter(iparam_perturbation_exponent) = 8;
    s.parameter(iparam_pivoting) = 1;
    load_grid(&s, -2, 9);
    ASSERT_EQ(s.call(23), 0) << "the sign of the type may change";
    EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-13);
    s.matrix_type = 2;
    EXPECT_LT(solve_error(&s), 1e-13) << "a solve goes by the type that was factored";

    load_grid(&s, 1, 8);
    for (const int64_t ido : {11, 22, 33, 13}) {
        ASSERT_EQ(s.call(ido), 0);
        EXPECT_EQ(control_of(&s)->matrix_type, 1) << "factored as 11, and the caller's code again behind it";
    }
}

TEST(handle, figures_of_a_run_come_back)
{
    session s;
    load_grid(&s, -2, 12);
    iparam_defaults(s.iparam, -2);
    s.parameter(iparam_core_mode) = 22;
    ASSERT_EQ(s.call(11), 0);
    EXPECT_EQ(s.parameter(iparam_core_mode), 2);
    EXPECT_EQ(s.parameter(iparam_core_mode_result), 2);
    s.parameter(iparam_core_mode) = 0;
    s.parameter(iparam_factor_nonzeros) = s.parameter(iparam_operation_count) = -1;
    s.parameter(iparam_domain_exponent) = 4;
    ASSERT_EQ(s.call(13), 0);
    const control_block *control = control_of(&s);
    EXPECT_EQ(s.parameter(iparam_factor_nonzeros), control->nnz_l + control->nnz_u);
    EXPECT_GE(s.parameter(iparam_operation_count), 0);
    EXPECT_EQ(s.parameter(iparam_domain_exponent), 0);
    EXPECT_EQ(s.parameter(iparam_positive_pivots) + s.parameter(iparam_negative_pivots), s.neqns);
    EXPECT_EQ(s.parameter(iparam_negative_pivots), s.neqns / 3);
    EXPECT_EQ(s.parameter(iparam_core_mode_result), -1);
    EXPECT_EQ(s.parameter(iparam_version), 103911000);
    for (const iparam_position position : {iparam_peak_analysis_kb, iparam_current_analysis_kb, iparam_solve_extra_kb,
                                           iparam_peak_analysis_kb_again, iparam_ooc_min_kb, iparam_ooc_solve_kb}) {
        EXPECT_GE(s.parameter(position), 1) << position;
    }
    EXPECT_EQ(s.parameter(iparam_peak_analysis_kb), s.parameter(iparam_peak_analysis_kb_again));
}

TEST(handle, failed_factorization_names_the_row_and_is_not_solved_with)
{
    session s;
    load_grid(&s, 2, 7);
    s.values[static_cast<size_t>(s.ia[20] - 1)] = -5.0; /* diagonal of row 21 */
    s.load();
    s.msglvl = 1;
    const std::string text = s.printed(13);
    EXPECT_EQ(s.error, -4);
    EXPECT_EQ(s.parameter(iparam_failing_row), 21);
    EXPECT_NE(text.find("*** error SOLVARA: iterative refinement\n contraction rate is greater than 0.9, interrupt\n"), std::string::npos);
    EXPECT_EQ(text.find("numerical_factorization"), std::string::npos);
    EXPECT_EQ(s.call(33), -1) << "no factors stand";
    s.msglvl = 0;
    load_grid(&s, 2, 7);
    EXPECT_EQ(s.call(23), 0);
    EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-13);
}

TEST(handle, missing_diagonals_and_hermitian_imaginary_parts_are_mended_in_copies)
{
    session s;
    s.matrix_type = -2;
    s.neqns = 4; /* [0 1 0 0; 1 2 0 0; 0 0 0 3; 0 0 3 0], from 0, three diagonal entries missing */
    s.ia = {0, 1, 2, 3, 3};
    s.ja = {1, 1, 3};
    s.values = {1.0, 2.0, 3.0};
    s.rhs = {1.0, 2.0, 3.0, 4.0};
    s.parameter(iparam_zero_based) = 1;
    s.parameter(iparam_use_defaults) = 1;
    s.parameter(iparam_preprocessing) = 2;
    s.parameter(iparam_perturbation_exponent) = 8;
    s.parameter(iparam_pivoting) = 1;
    s.load();
    for (const int64_t ido : {13, 23}) {
        ASSERT_EQ(s.call(ido), 0);
        const auto x = s.unpack(s.x);
        const double told[] = {0.0, 1.0, 4.0 / 3.0, 1.0};
        for (size_t i = 0; i < 4; ++i) EXPECT_NEAR(x[i].real(), told[i], 1e-14);
    }
    EXPECT_EQ(control_of(&s)->nnz_a, 6);

    session h;
    load_grid(&h, 4, 5);
    auto spoilt = h.values;
    for (int64_t i = 0; i < h.neqns; ++i) spoilt[static_cast<size_t>(h.ia[static_cast<size_t>(i)] - 1)] += std::complex<double>(0, 3);
    h.pack(spoilt, &h.a);
    const auto given = h.a;
    ASSERT_EQ(h.call(13), 0);
    EXPECT_LT(backward_error(&h, h.unpack(h.x)), 1e-13);
    EXPECT_EQ(h.a, given) << "the caller's values stay";
}
