/* Every matrix type, precision, thread count, index base, transposition, number of right-hand sides and place of the result: whatever one
   combination gets wrong (a conjugation, a scale, an exchange, a copy) shows as a large backward error. */
#include <gtest/gtest.h>

#include "systems.h"

namespace
{
struct sweep_case {
    int64_t type, single;
    int32_t threads;
};

class sweep_of_solves : public testing::TestWithParam<sweep_case>
{
};

bool is_indefinite(int64_t type)
{
    return type == -2 || type == -4 || type == 6;
}

/* Variants of the analysis: the defaults, and what the defaults of the type leave out. Indefinite types without matching refine on demand,
   as the documents advise. */
void choose_variant(session *s, bool variant)
{
    const bool unsymmetric = s->matrix_type > 10;
    if (!variant && is_indefinite(s->matrix_type)) s->parameter(iparam_refinement_request) = 2;
    if (!variant) return;
    s->parameter(iparam_matching) = s->parameter(iparam_scaling) = unsymmetric ? 0 : 1;
    s->parameter(iparam_scheme) = 1;
    if (s->matrix_type == -2) s->parameter(iparam_pivoting) = 1;
}

TEST_P(sweep_of_solves, backward_error)
{
    const sweep_case what = GetParam();
    const double bound = what.single != 0 ? 1e-6 : 1e-14;
    use_threads(what.threads);
    for (const bool variant : {false, true}) {
        entry_map a = generated_entries(what.type, 9, 8, 9, 5, !variant);
        if (variant && what.type > 10) a = generated_entries(what.type - 10, 9, 8, 9, 5); /* without matching the diagonal must do */
        for (const bool zero_based : {false, true}) {
            session s;
            iparam_defaults(s.iparam, what.type);
            s.parameter(iparam_single_precision) = what.single;
            load_entries(&s, what.type, 9 * 8 * 9, a, 1, 1);
            choose_variant(&s, variant);
            if (zero_based) s.to_zero_based();
            ASSERT_EQ(s.call(12), 0);
            for (const int64_t nb : {1, 3, 40})
                for (const int64_t transpose : {0, 1, 2})
                    for (const int64_t overwrite : {0, 1}) {
                        SCOPED_TRACE(testing::Message() << "variant " << variant << " base " << !zero_based << " nb " << nb << " transpose "
                                                        << transpose << " overwrite " << overwrite);
                        std::mt19937 random(3);
                        std::uniform_real_distribution<double> u(-1, 1);
                        s.rhs.clear();
                        for (int64_t k = 0; k < s.neqns * nb; ++k) s.rhs.emplace_back(u(random), s.is_complex() ? u(random) : 0.0);
                        s.nb = nb;
                        s.load();
                        const auto told = s.b;
                        s.parameter(iparam_transpose) = transpose;
                        s.parameter(iparam_overwrite_rhs) = overwrite;
                        ASSERT_EQ(s.call(33), 0);
                        const auto b = s.unpack(told);
                        EXPECT_LE(backward_error(a, applied_form(what.type, transpose), s.neqns, b, s.unpack(overwrite != 0 ? s.b : s.x)),
                                  bound)
                            << "perturbed pivots " << s.parameter(iparam_perturbed_pivots);
                        if (overwrite == 0) { EXPECT_EQ(s.b, told); }
                    }
            if (s.parameter(iparam_perturbed_pivots) == 0 && (what.type == 2 || what.type == -2 || what.type == 4 || what.type == -4)) {
                EXPECT_EQ(s.parameter(iparam_positive_pivots) + s.parameter(iparam_negative_pivots), s.neqns);
            }
        }
    }
    use_threads(-1);
}

/* Dense leaves below a dense separator that is cut for its width: its pieces are updated together. */
TEST(wide_supernodes, all_types_and_thread_counts)
{
    constexpr int64_t leaf = 40, leaves = 4 * leaf, n = leaves + 420;
    for (const int64_t type : all_matrix_types) {
        std::mt19937 random(5);
        std::uniform_real_distribution<double> u(-1, 1);
        const bool complex_type = type == 3 || type == 4 || type == -4 || type == 6 || type == 13;
        entry_map a;
        for (int64_t i = 0; i < n; ++i) {
            a[{i, i}] = 2.0 * n;
            for (int64_t j = 0; j < i; ++j) {
                const bool apart = i < leaves && i / leaf != j / leaf, thin = i >= leaves && j < leaves && (i + j) % 3 != 0;
                if (apart || thin) continue;
                const std::complex<double> v(u(random), complex_type ? u(random) : 0.0);
                a[{i, j}] = type % 2 == 0 ? v : 0.5 * v;
                a[{j, i}] = type == 4 || type == -4 ? std::conj(v) : v;
            }
        }
        for (const int32_t threads : {1, 2, 3}) {
            SCOPED_TRACE(testing::Message() << "type " << type << " threads " << threads);
            use_threads(threads);
            session s;
            iparam_defaults(s.iparam, type);
            load_entries(&s, type, n, a, 1, 1);
            ASSERT_EQ(s.call(13), 0);
            EXPECT_LE(backward_error(a, applied_form(type, 0), n, s.unpack(s.b), s.unpack(s.x)), 1e-14);
        }
    }
    use_threads(-1);
}

/* Zero diagonals whose partners end up in other supernodes, and no matching: the solution is good, or a count or a code says that it need
   not be, with the exponents of the defaults in single precision as well. */
TEST(sweep, lost_pivots_are_told)
{
    for (const int64_t type : {-2, -4, 6})
        for (const int64_t single : {0, 1})
            for (const int64_t pivoting : {0, 1}) {
                const entry_map a = generated_entries(type, 9, 8, 9, 5, false);
                session s;
                iparam_defaults(s.iparam, type);
                s.parameter(iparam_single_precision) = single;
                s.parameter(iparam_pivoting) = pivoting;
                load_entries(&s, type, 9 * 8 * 9, a, 1, 1);
                choose_variant(&s, false);
                const auto b = s.unpack(s.b);
                const int64_t code = s.call(13);
                EXPECT_TRUE(code == 0 || code == -4);
                const double error = backward_error(a, applied_form(type, 0), s.neqns, b, s.unpack(s.x));
                EXPECT_TRUE(code != 0 || s.parameter(iparam_perturbed_pivots) > 0 || error <= (single != 0 ? 1e-6 : 1e-14))
                    << type << " " << single << " " << pivoting << ": " << error;
            }
}

std::vector<sweep_case> all_cases()
{
    std::vector<sweep_case> cases;
    for (const int64_t type : all_matrix_types)
        for (const int64_t single : {0, 1})
            for (const int32_t threads : {1, 2}) cases.push_back({type, single, threads});
    return cases;
}

std::string name_of(const testing::TestParamInfo<sweep_case> &info)
{
    const sweep_case &what = info.param;
    return "type_" + std::string(what.type < 0 ? "minus_" : "") + std::to_string(std::abs(what.type)) +
           (what.single != 0 ? "_single_" : "_double_") + std::to_string(what.threads);
}

INSTANTIATE_TEST_SUITE_P(all, sweep_of_solves, testing::ValuesIn(all_cases()), name_of);
} // namespace
