/* What the entry answers by itself: queries, start values, threads, the diagonal shortcut; null arguments. */
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

#include "session.h"
#include "solver/control.h"

namespace
{
void load_diagonal(session *s, int64_t matrix_type, int64_t n, int64_t nb)
{
    s->matrix_type = matrix_type;
    s->neqns = n;
    s->nb = nb;
    s->ia.assign(1, 1);
    s->ja.clear();
    s->values.clear();
    s->rhs.clear();
    for (int64_t i = 0; i < n; ++i) {
        s->ia.push_back(i + 2);
        s->ja.push_back(i + 1);
        s->values.emplace_back(i % 3 == 0 ? -2.0 : 4.0, s->is_complex() ? 1.0 : 0.0);
    }
    for (int64_t k = 0; k < n * nb; ++k) s->rhs.emplace_back(static_cast<double>(k + 1), s->is_complex() ? -1.0 : 0.0);
    s->load();
}
} // namespace

TEST(entry, queries_and_null_arguments_are_answered_without_reading_further)
{
    int64_t ido = -2, error = 0, n = 5, iparam[64] = {};
    void *handle[64] = {};
    const auto call = [&](void **to, const int64_t *what, const int64_t *neqns, int64_t *words, int64_t *result) {
        solver_entry(to, nullptr, nullptr, nullptr, what, neqns, nullptr, nullptr, nullptr, nullptr, nullptr, words, nullptr, nullptr,
                     nullptr, result);
        return error;
    };
    EXPECT_EQ(call(nullptr, &ido, nullptr, iparam, &error), 16);
    EXPECT_EQ(iparam[0], 23);
    ido = -3;
    iparam[0] = 0;
    EXPECT_EQ(call(nullptr, &ido, nullptr, nullptr, &error), 300000);
    ido = 13;
    EXPECT_EQ(call(handle, &ido, &n, iparam, &error), -1);
    ido = -1;
    call(handle, &ido, &n, iparam, nullptr);
    for (const void *slot : handle) EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(call(nullptr, nullptr, nullptr, nullptr, &error), -1);
}

TEST(entry, defaults_of_each_type)
{
    struct row {
        int64_t type, exponent, scaling, matching, pivoting;
    };
    for (const row &want : {row{1, 13, 0, 0, 0}, row{2, 0, 0, 0, 0}, row{-2, 8, 0, 0, 1}, row{3, 13, 0, 0, 0}, row{4, 0, 0, 0, 0},
                            row{-4, 8, 0, 0, 1}, row{6, 8, 0, 0, 1}, row{11, 13, 1, 1, 0}, row{13, 13, 1, 1, 0}, row{5, 0, 0, 0, 0}}) {
        std::vector<int64_t> iparam(64, 99), told(64, 0);
        iparam_defaults(iparam.data(), want.type);
        told[0] = 1, told[1] = 2, told[17] = told[18] = -1;
        told[9] = want.exponent, told[10] = want.scaling, told[12] = want.matching, told[20] = want.pivoting;
        EXPECT_EQ(iparam, told) << "type " << want.type;
    }
}

TEST(entry, diagonal_systems_are_solved_without_a_record)
{
    for (const int64_t type : {1, 2, -2, 3, 4, -4, 6, 11, 13}) {
        for (const int64_t single : {0, 1}) {
            for (const int64_t overwrite : {0, 1}) {
                session s;
                s.parameter(iparam_use_defaults) = 1;
                s.parameter(iparam_single_precision) = single;
                s.parameter(iparam_overwrite_rhs) = overwrite;
                s.parameter(iparam_threads) = 77;
                load_diagonal(&s, type, 120, 3);
                ASSERT_EQ(s.call(23), 0);
                EXPECT_EQ(s.parameter(iparam_transpose), -1);
                EXPECT_EQ(s.parameter(iparam_threads), 77) << "the shortcut leaves the caller's count";
                EXPECT_EQ(s.parameter(iparam_positive_pivots), s.is_complex() ? 0 : 80);
                EXPECT_EQ(s.parameter(iparam_negative_pivots), s.is_complex() ? 0 : 40);
                EXPECT_LT(backward_error(&s, s.unpack(overwrite == 1 ? s.b : s.x)), single ? 1e-6 : 1e-15);
                EXPECT_EQ(s.handle[slot_state], nullptr);
                EXPECT_EQ(s.call(0), 0);
                EXPECT_EQ(s.call(-1), 0);
            }
        }
    }
}

TEST(entry, diagonal_shortcut_refuses_without_a_word)
{
    session s;
    load_diagonal(&s, 11, 4, 1);
    s.msglvl = 1;
    s.values[2] = 0.0;
    s.load();
    EXPECT_EQ(s.printed(13), "");
    EXPECT_EQ(s.error, -7) << "a zero";
    EXPECT_EQ(s.parameter(iparam_negative_pivots), 1);
    EXPECT_EQ(s.parameter(iparam_positive_pivots), 1);
    load_diagonal(&s, 11, 4, 1);
    s.ia = {1, 2, 2, 4, 5};
    EXPECT_EQ(s.call(12), -7) << "an empty row";
    EXPECT_EQ(s.call(11), 0) << "nothing is looked at";
    s.a.clear();
    s.a.shrink_to_fit();
    EXPECT_EQ(s.call(13), -7) << "no values";
    load_grid(&s, 11, 6);
    ASSERT_EQ(s.call(13), 0);
    EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-13) << "the shortcut's transposed request does not reach a later matrix";
}

TEST(entry, precision_stays_with_the_analysis)
{
    session s;
    s.parameter(iparam_use_defaults) = 1;
    s.parameter(iparam_single_precision) = 1;
    load_grid(&s, 2, 8);
    ASSERT_EQ(s.call(12), 0);
    s.parameter(iparam_single_precision) = 0; /* the arrays stay single */
    ASSERT_EQ(s.call(33), 0);
    s.parameter(iparam_single_precision) = 1;
    EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-5);
    EXPECT_TRUE(precision_select(s.handle, 331, s.iparam));
    s.parameter(iparam_single_precision) = 0;
    EXPECT_TRUE(precision_select(s.handle, 331, s.iparam));
    EXPECT_FALSE(precision_select(s.handle, 12, s.iparam));
}
