/* Refinement through the entry: ill-conditioned systems with known solutions, the order of the loop's tests, and what a failure says. */
#include <gtest/gtest.h>

#include "systems.h"

namespace
{
/* The power of the second difference of n points, times 1 + i for complex types: integers, so that right-hand sides of integer solutions
   are exact. Its condition is (0.64 (n + 1)) to twice the power. */
entry_map difference_power(int64_t n, int power, bool pairs)
{
    entry_map a;
    for (int64_t i = 0; i < n; ++i) a[{i, i}] = pairs ? std::complex<double>(1, 1) : 1.0;
    for (int p = 0; p < power; ++p) {
        entry_map next;
        for (const auto &[place, v] : a) {
            const auto [i, j] = place;
            next[{i, j}] += 2.0 * v;
            if (j > 0) next[{i, j - 1}] -= v;
            if (j + 1 < n) next[{i, j + 1}] -= v;
        }
        a = next;
    }
    return a;
}

std::vector<std::complex<double>> integer_solution(int64_t count, bool pairs)
{
    std::vector<std::complex<double>> x;
    for (int64_t i = 0; i < count; ++i) x.emplace_back(static_cast<double>(1 + i * 7 % 5), pairs ? static_cast<double>(i * 3 % 4) : 0.0);
    return x;
}

std::vector<std::complex<double>> applied(const entry_map &a, int64_t form, int64_t n, const std::vector<std::complex<double>> &x)
{
    std::vector<std::complex<double>> y(x.size());
    for (size_t at = 0; at < x.size(); at += static_cast<size_t>(n))
        for (const auto &[place, v] : a) {
            const bool turned = form == 1 || form == 2;
            const auto i = static_cast<size_t>(turned ? place.second : place.first);
            const auto j = static_cast<size_t>(turned ? place.first : place.second);
            y[at + i] += (form >= 2 ? std::conj(v) : v) * x[at + j];
        }
    return y;
}

double forward_error(const std::vector<std::complex<double>> &x, const std::vector<std::complex<double>> &want)
{
    double worst = 0, largest = 0;
    for (size_t i = 0; i < x.size(); ++i) {
        if (!(std::abs(x[i] - want[i]) < 1e300)) return 1e300;
        worst = std::max(worst, std::abs(x[i] - want[i]));
        largest = std::max(largest, std::abs(want[i]));
    }
    return worst / largest;
}

struct refined {
    double error;
    int64_t code, steps;
};

refined solve_refined(int64_t type, const entry_map &a, int64_t n, int64_t nb, int64_t request, int64_t transpose, int64_t overwrite,
                      bool single)
{
    session s;
    iparam_defaults(s.iparam, type);
    s.parameter(iparam_refinement_request) = request;
    s.parameter(iparam_transpose) = transpose;
    s.parameter(iparam_overwrite_rhs) = overwrite;
    s.parameter(iparam_single_precision) = single ? 1 : 0;
    s.parameter(iparam_perturbation_exponent) = 18; /* no pivot of these is perturbed */
    load_entries(&s, type, n, a, nb, 1);
    const auto want = integer_solution(n * nb, s.is_complex());
    s.rhs = applied(a, applied_form(type, transpose), n, want);
    s.load();
    const int64_t code = s.call(13);
    return {forward_error(s.unpack(overwrite != 0 ? s.b : s.x), want), code, s.parameter(iparam_refinement_done)};
}

/* Real symmetric ones are fit for -2 and the complex ones, times 1 + i, are fit for 6. */
bool fits(int64_t type)
{
    return type != 4 && type != -4;
}
} // namespace

TEST(refinement, extended_residuals_reach_full_accuracy_where_plain_ones_cannot)
{
    struct system {
        int64_t n;
        int power;
        double condition;
    };
    for (const system &what :
         {system{150, 1, 9e3}, system{100, 2, 1.7e7}, system{100, 3, 7e10}, system{70, 4, 1.8e13}, system{100, 4, 3e14}})
        for (const int64_t type : all_matrix_types) {
            if (!fits(type)) continue;
            const entry_map a = difference_power(what.n, what.power, type == 3 || type == 6 || type == 13);
            const int64_t variants = what.power == 3 ? 3 : 1;
            for (int64_t transpose = 0; transpose < variants; ++transpose) {
                SCOPED_TRACE(testing::Message() << "type " << type << " condition " << what.condition << " transpose " << transpose);
                const int64_t nb = what.power == 2 ? 3 : 1, overwrite = what.n == 70 ? 1 : 0;
                const refined plain = solve_refined(type, a, what.n, nb, 20, transpose, overwrite, false);
                const refined extended = solve_refined(type, a, what.n, nb, -20, transpose, overwrite, false);
                EXPECT_EQ(extended.code, 0);
                EXPECT_LE(extended.error,
                          what.condition > 1e14 ? 1e-10 : 2.3e-16); /* there the loop's tests end it early, how early is rounding */
                EXPECT_GT(extended.steps, 0);
                if (plain.code == 0) { EXPECT_LE(plain.error, 1e-15 * what.condition); }
                if (what.condition > 1e10 && type == 2) { EXPECT_GT(plain.error, 1e4 * extended.error + 1e-12); }
            }
        }
}

TEST(refinement, graded_systems_and_single_precision)
{
    for (const int64_t type : {int64_t{2}, int64_t{11}}) {
        entry_map a = difference_power(60, 1, false);
        for (auto &[place, v] : a) v *= std::ldexp(1.0, static_cast<int>(place.first % 20 + place.second % 20));
        EXPECT_LE(solve_refined(type, a, 60, 2, -10, 0, 0, false).error, 2.3e-16) << type;
        EXPECT_LE(solve_refined(type, difference_power(30, 2, false), 30, 1, -10, 0, 0, true).error, 1.2e-7) << type << " single";
    }
}

TEST(refinement, steps_and_their_reports)
{
    const entry_map a = generated_entries(2, 6, 6, 6, 3);
    session s;
    iparam_defaults(s.iparam, 2);
    load_entries(&s, 2, 216, a, 2, 1);
    s.parameter(iparam_refinement_request) = 1;
    ASSERT_EQ(s.call(13), 0);
    EXPECT_EQ(s.parameter(iparam_refinement_done), 1);
    s.parameter(iparam_refinement_request) = 3;
    ASSERT_EQ(s.call(33), 0) << "the third step ends the loop, contraction or not";
    EXPECT_EQ(s.parameter(iparam_refinement_done), 3);
    s.parameter(iparam_refinement_request) = 10;
    ASSERT_EQ(s.call(33), 0) << "no contraction is left at rounding level, but the corrections are small";
    EXPECT_LT(s.parameter(iparam_refinement_done), 10);
    EXPECT_EQ(s.parameter(iparam_hybrid_result), 0);
    s.parameter(iparam_refinement_request) = 0;
    ASSERT_EQ(s.call(33), 0);
    EXPECT_EQ(s.parameter(iparam_refinement_done), 0) << "no pivot was perturbed";
    s.parameter(iparam_perturbed_pivots) = 1; /* the caller knows better */
    ASSERT_EQ(s.call(33), 0);
    EXPECT_EQ(s.parameter(iparam_refinement_done), 2);
    EXPECT_EQ(s.parameter(iparam_hybrid_result), -34);
    s.parameter(iparam_perturbed_pivots) = 1;
    std::fill(s.rhs.begin(), s.rhs.end(), 0.0);
    s.load();
    ASSERT_EQ(s.call(33), 0) << "a zero right-hand side cannot contract and is no failure";
    for (const auto &v : s.unpack(s.x)) EXPECT_EQ(v, 0.0);
}

/* The factors of one matrix against the residuals of another that they do not fit. */
TEST(refinement, failures_are_reported_with_words)
{
    for (const int64_t request : {10, -10})
        for (const int64_t overwrite : {0, 1}) {
            session s;
            entry_map a = generated_entries(2, 6, 6, 6, 3);
            iparam_defaults(s.iparam, 2);
            load_entries(&s, 2, 216, a, 1, 1);
            ASSERT_EQ(s.call(12), 0);
            for (auto &v : s.values) v *= 3.0; /* A x = b solved with factors of A / 3: the error doubles in each step */
            s.load();
            s.parameter(iparam_refinement_request) = request;
            s.parameter(iparam_overwrite_rhs) = overwrite;
            s.msglvl = 1;
            const std::string text = s.printed(33);
            EXPECT_EQ(s.error, -4);
            EXPECT_NE(text.find("contraction rate is greater than 0.9, interrupt"), std::string::npos) << text;
            EXPECT_EQ(s.parameter(iparam_refinement_done), 4);
            s.msglvl = 0;
        }
}

/* Whatever makes a NaN or an infinity on the way: no success is reported. */
TEST(refinement, what_is_not_finite_is_no_success)
{
    for (const int64_t request : {1, -1, 5}) {
        session s;
        iparam_defaults(s.iparam, 2);
        load_entries(&s, 2, 216, generated_entries(2, 6, 6, 6, 3), 1, 1);
        ASSERT_EQ(s.call(12), 0);
        s.rhs[7] = std::nan("");
        s.load();
        s.parameter(iparam_refinement_request) = request;
        EXPECT_EQ(s.call(33), -4) << request;
        s.rhs[7] = 1.0;
        s.load();
        EXPECT_EQ(s.call(33), 0) << request;
    }
}

/* Fails when the products for residuals, or updates around an empty domain (4, 11), add in an order that depends on the threads. */
TEST(refinement, reproducible_units_keep_the_bits_on_any_number_of_threads)
{
    for (const int64_t type : {-2, 4, 11}) {
        decltype(session::x) alone;
        for (const int32_t threads : {1, 2, 3}) {
            service_max_threads();
            service_threads.general_threads = threads;
            session s;
            iparam_defaults(s.iparam, type);
            load_entries(&s, type, 648, generated_entries(type, 9, 8, 9, 5), 2, 1);
            s.parameter(iparam_reproducible_units) = 4;
            s.parameter(iparam_refinement_request) = 2;
            s.parameter(iparam_transpose) = 1;
            ASSERT_EQ(s.call(13), 0);
            if (threads == 1) alone = s.x;
            EXPECT_EQ(s.x, alone) << type << " " << threads;
        }
    }
    service_threads.general_threads = -1;
}
