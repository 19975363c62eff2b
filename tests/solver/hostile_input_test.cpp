/* Random calls on random small arrays with the matrix checker on: whatever comes, the call ends with a code, the handle works afterwards
   and gives everything back. */
#include <gtest/gtest.h>
#include <random>

#include "session.h"
#include "solver/control.h"

namespace
{
struct random_source {
    std::mt19937_64 engine;
    int64_t within(int64_t low, int64_t high)
    {
        return std::uniform_int_distribution<int64_t>(low, high)(engine);
    }
    template <size_t count>
    int64_t one_of(const int64_t (&values)[count])
    {
        return values[within(0, static_cast<int64_t>(count) - 1)];
    }
    bool chance(int64_t one_in)
    {
        return within(1, one_in) == 1;
    }
};

constexpr int64_t types[] = {1, 2, -2, 3, 4, -4, 6, 11, 13};
constexpr int64_t odd_types[] = {5, -1, -3, -5, -6, -11, 0, 7, -13, INT64_MIN, INT64_MAX};
constexpr int64_t steps[] = {11, 12, 13, 22, 23, 33, 331, 332, 333, 0, 11, 12, 13, 13};
constexpr int64_t odd_steps[] = {334, 1, 5, 14, 21, 32, 34, 100, -4, INT64_MAX, INT64_MIN + 1};
constexpr int64_t extremes[] = {INT64_MIN, INT64_MAX, -1, 0, 1, 2, 3, 1000000};

/* A pattern that mostly is as the type wants it. The last row pointer stays within ja. */
void random_matrix(random_source *random, session *s)
{
    const int64_t n = random->within(1, 9), base = random->within(0, 1);
    const bool upper = s->matrix_type < 0 || s->matrix_type % 2 == 0;
    s->neqns = n;
    s->ia.assign(1, base);
    s->ja.clear();
    for (int64_t i = 0; i < n; ++i) {
        for (int64_t j = upper ? i : 0; j < n; ++j) {
            if ((i == j && !random->chance(12)) || random->chance(3)) s->ja.push_back(j + base);
        }
        s->ia.push_back(static_cast<int64_t>(s->ja.size()) + base);
    }
    const auto length = static_cast<int64_t>(s->ja.size());
    if (random->chance(4) && length > 0) s->ja[static_cast<size_t>(random->within(0, length - 1))] = random->one_of(extremes);
    if (random->chance(4)) s->ia[static_cast<size_t>(random->within(0, n - 1))] = random->one_of(extremes);
    if (random->chance(9)) s->ia[static_cast<size_t>(n)] = random->within(-2, length);
    s->parameter(iparam_zero_based) = 1 - base;
    s->values.clear();
    for (int64_t p = 0; p < length; ++p) s->values.emplace_back(static_cast<double>(random->within(-5, 9)), 0.5);
    s->nb = random->chance(20) ? random->within(-1, 0) : random->within(1, 3);
    s->rhs.assign(static_cast<size_t>(n * 3), 1.0);
    s->perm.clear();
    for (int64_t i = 0; i < n; ++i) s->perm.push_back(random->chance(9) ? random->within(-1, n + 1) : i + base);
}

void random_parameters(random_source *random, session *s)
{
    const int64_t base_flag = s->parameter(iparam_zero_based);
    iparam_defaults(s->iparam, s->matrix_type);
    s->parameter(iparam_zero_based) = base_flag;
    s->parameter(iparam_matrix_checker) = 1;
    s->parameter(iparam_preprocessing) = random->within(0, 3);
    s->parameter(iparam_perm_mode) = random->chance(3) ? random->within(-1, 3) : 0;
    s->parameter(iparam_refinement_request) = random->chance(3) ? random->within(-2, 2) : 0;
    s->parameter(iparam_hybrid) = random->chance(5) ? random->within(-63, 63) : 0;
    s->parameter(iparam_overwrite_rhs) = random->within(0, 1);
    s->parameter(iparam_transpose) = random->within(-1, 2);
    s->parameter(iparam_scheme) = random->within(0, 1);
    s->parameter(iparam_core_mode) = random->chance(4) ? 1 : 0;
    s->parameter(iparam_reproducible_units) = random->chance(3) ? random->within(1, 4) : 0;
    s->parameter(iparam_single_precision) = random->within(0, 1);
    s->parameter(iparam_partial_solve) = random->chance(6) ? random->within(1, 4) : 0;
    s->parameter(iparam_partial_window) = random->chance(6) ? random->within(-10, 9) : 0;
    if (!random->chance(15)) return;
    const auto position = static_cast<iparam_position>(random->within(1, 64));
    if (position != iparam_zero_based && position != iparam_matrix_checker && position != iparam_single_precision) {
        s->parameter(position) = random->one_of(extremes);
    }
}

void random_call(random_source *random, session *s)
{
    s->max_fac_store = random->within(1, 3);
    s->matrix_number = random->chance(9) ? random->within(-1, 4) : random->within(1, s->max_fac_store);
    s->matrix_type = random->chance(15) ? random->one_of(odd_types) : random->one_of(types);
    random_matrix(random, s);
    random_parameters(random, s);
    s->pack(s->values, &s->a);
    /* the precision and field of the vectors are what the handle was analysed with: make them long enough for any */
    s->a.resize(s->values.size() * 16, 0x11);
    s->b.assign(s->rhs.size() * 16, 0x3f);
    s->x.assign(s->rhs.size() * 16, 0xff);
    s->msglvl = random->chance(10) ? random->within(-1, 3) : 0;
    s->call(random->chance(12) ? random->one_of(odd_steps) : random->one_of(steps));
    EXPECT_TRUE((s->error <= 0 && s->error >= -11) || s->error == 1) << s->error;
}
} // namespace

TEST(hostile_input, random_calls_end_with_a_code_and_leave_a_working_handle)
{
    const service_memory before = memory_in_use();
    for (uint64_t seed = 1; seed <= 400; ++seed) {
        SCOPED_TRACE(seed);
        random_source random{std::mt19937_64(seed)};
        session s;
        {
            output_capture silence;
            for (int64_t call = random.within(1, 8); call > 0; --call) random_call(&random, &s);
        }
        s.max_fac_store = s.matrix_number = 1;
        s.msglvl = 0;
        load_grid(&s, random.one_of(types), 5);
        iparam_defaults(s.iparam, s.matrix_type);
        s.load();
        ASSERT_EQ(s.call(13), 0);
        EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-12);
        ASSERT_EQ(s.call(-1), 0);
        ASSERT_EQ(memory_in_use().direct_blocks, before.direct_blocks);
    }
}
