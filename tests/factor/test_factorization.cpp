#include <gtest/gtest.h>

#include <atomic>

#include "rebuild.h"
#include "service/service.h"

namespace
{

template <typename value_t>
double tolerance(double growth)
{
    return growth * static_cast<double>(std::numeric_limits<real_part_t<value_t>>::epsilon());
}

template <typename value_t>
std::vector<int64_t> types_of()
{
    if constexpr (is_real<value_t>)
        return {2, -2, 1, 11};
    else
        return {4, -4, 6, 3, 13};
}

const problem_shape
    shapes[] =
        {
            {1, 0.5, 4, 1, 1},   {2, 1.0, 1, 1, 2},      {30, 0.05, 4, 1, 3},    {40, 0.2, 80, 1, 4},
            {61, 0.03, 3, 4, 5}, {80, 0.08, 8, 2, 6},    {64, 1.0, 9, 1, 7},     {90, 0.02, 128, 8, 8},
            {50, 0.0, 4, 2, 9},  {120, 0.06, 16, 4, 10}, {220, 0.012, 5, 1, 11}, /* long chains of narrow supernodes, wide enough for a
                                                                                    front, with sources of all lengths below */
};

template <typename value_t>
class factorization_of : public testing::Test
{
};
using value_types = testing::Types<double, float, std::complex<double>, std::complex<float>>;
TYPED_TEST_SUITE(factorization_of, value_types);

/* Misplaced entries, wrong offsets of scattered updates, lost or doubled updates, exchanges not carried to a panel, a front's columns added
   to the wrong member, use of stale storage (all arrays are poisoned). */
TYPED_TEST(factorization_of, every_type_rebuilds_the_matrix_with_every_driver)
{
    for (const int64_t type : types_of<TypeParam>())
        for (problem_shape shape : shapes) {
            shape.shuffle_rows = type > 10;
            for (const int64_t pivoting : {0, 1})
                for (const int64_t two_level : {0, 1, 2})
                    for (const int64_t threads : {0, 1, 3}) {
                        if (threads <= 1 && two_level > 0) continue;
                        if (pivoting == 0 && type_of(type).kind != factor_kind::ldlt) continue;
                        const auto q = make_problem<TypeParam>(type, shape, two_level);
                        factorization<TypeParam> f;
                        prepare(q, threads, &f);
                        f.input.pivoting = pivoting;
                        numeric_dispatch(&f.input, &f.result);
                        ASSERT_EQ(f.result.error, 0) << type;
                        if (type_of(type).kind == factor_kind::cholesky) { EXPECT_EQ(f.result.positive, q.n); }
                        EXPECT_EQ(f.result.perturbed, 0);
                        EXPECT_LE(rebuild_error(q, f), tolerance<TypeParam>(4))
                            << "type " << type << " n " << shape.n << " threads " << threads << " level " << two_level;
                    }
        }
}

/* Row exchanges and 2x2 pivots that are not carried to the right rows, columns or panels. The diagonal is weak, so that both occur. */
TYPED_TEST(factorization_of, pivoted_types_rebuild_a_matrix_with_weak_diagonal)
{
    for (const int64_t type : types_of<TypeParam>()) {
        if (type_of(type).kind == factor_kind::cholesky) continue;
        int64_t exchanges = 0, pairs = 0;
        for (const unsigned seed : {1U, 2U, 3U})
            for (const int64_t threads : {0, 1, 2}) {
                const problem_shape shape = {70, 0.15, 40, 2, seed, 0.3, type > 10};
                const auto q = make_problem<TypeParam>(type, shape, threads == 2 ? 1 : 0);
                factorization<TypeParam> f;
                prepare(q, threads, &f);
                numeric_dispatch(&f.input, &f.result);
                ASSERT_EQ(f.result.error, 0);
                EXPECT_LE(rebuild_error(q, f), tolerance<TypeParam>(20)) << "type " << type << " seed " << seed;
                for (int64_t c = 0; c < q.n; ++c) {
                    const int64_t local = c + 2 - q.xsuper[static_cast<size_t>(q.snode[static_cast<size_t>(c)] - 1)];
                    pairs += f.pivots[static_cast<size_t>(c)] < 0;
                    exchanges += f.pivots[static_cast<size_t>(c)] > 0 && f.pivots[static_cast<size_t>(c)] != local;
                }
            }
        EXPECT_GT(exchanges, 10);
        if (type_of(type).kind == factor_kind::ldlt) { EXPECT_GT(pairs, 10); }
    }
}

/* Products written past the end of a program, and updates that are lost or doubled when fewer of them are listed. */
TYPED_TEST(factorization_of, programs_with_less_room_list_fewer_products)
{
    const int64_t type = is_real<TypeParam> ? 11 : 13;
    const auto q = make_problem<TypeParam>(type, {120, 0.03, 5, 1, 4, -1, true});
    int64_t sizes = 0;
    for (int64_t words = update_program_words(type, &q.structure);; words -= words / 6) {
        factorization<TypeParam> f;
        prepare(q, 1, &f);
        add_program(q, words, &f);
        if (f.program[0] < 0) break; /* no room for the least program */
        numeric_dispatch(&f.input, &f.result);
        ASSERT_EQ(f.result.error, 0);
        ASSERT_LE(rebuild_error(q, f), tolerance<TypeParam>(4)) << words;
        ++sizes;
    }
    EXPECT_GT(sizes, 3);
}

} // namespace
