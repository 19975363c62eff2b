/* Iteration with the factors of an earlier matrix: what iparam(4) asks for, when it is tried, how it ends, and what stands in x then. */
#include <gtest/gtest.h>

#include "solve/solve.h"
#include "systems.h"

namespace
{
constexpr int64_t side = 12, rows = side * side * side;

void load_matrix(session *s, int64_t type, double shift, int64_t nb)
{
    entry_map a = generated_entries(type, side, side, side, 9);
    for (int64_t i = 0; i < rows; ++i) a[{i, i}] *= 1.0 + shift * static_cast<double>(i % 5);
    load_entries(s, type, rows, a, nb, 2);
}

double error_of(session *s, int64_t type, double shift)
{
    entry_map a = generated_entries(type, side, side, side, 9);
    for (int64_t i = 0; i < rows; ++i) a[{i, i}] *= 1.0 + shift * static_cast<double>(i % 5);
    return backward_error(a, 0, rows, s->rhs, s->unpack(s->parameter(iparam_overwrite_rhs) == 1 ? s->b : s->x));
}
} // namespace

TEST(hybrid, a_changed_matrix_is_solved_with_the_old_factors)
{
    for (const int64_t type : {1, 2, 3, 4, 6, 11, 13})
        for (const int64_t nb : {1, 3}) {
            SCOPED_TRACE(testing::Message() << "type " << type << " nb " << nb);
            session s;
            iparam_defaults(s.iparam, type);
            s.parameter(iparam_hybrid) = type == 2 || type == 4 ? -102 : -101; /* never factors, tolerance 1e-10 */
            s.parameter(iparam_overwrite_rhs) = nb == 3 ? 1 : 0;
            load_matrix(&s, type, 0.0, nb);
            ASSERT_EQ(s.call(13), 0);
            EXPECT_LT(error_of(&s, type, 0.0), 1e-10);
            /* CGS measures against the solution and ends at once, CG against a residual that is rounding already */
            EXPECT_LE(s.parameter(iparam_hybrid_result), type == 2 || type == 4 ? 2 : 1);
            load_matrix(&s, type, 0.02, nb);
            ASSERT_EQ(s.call(33), 0) << s.parameter(iparam_hybrid_result);
            EXPECT_GT(s.parameter(iparam_hybrid_result), 1);
            EXPECT_LT(error_of(&s, type, 0.02), 1e-9);
        }
}

TEST(hybrid, failure_without_and_with_leave_to_factor)
{
    for (const int64_t mode : {-1, -2, 1, 2}) {
        SCOPED_TRACE(mode);
        session s;
        iparam_defaults(s.iparam, 2);
        s.parameter(iparam_hybrid) = (mode < 0 ? -120 : 120) + mode;
        load_matrix(&s, 2, 0.0, 1);
        ASSERT_EQ(s.call(13), 0);
        for (auto &v : s.values) v = -v; /* indefinite against the factors; and far away from them */
        for (size_t i = 0; i < s.values.size(); i += 3) s.values[i] *= 50.0;
        for (int64_t i = 0; i < rows; ++i) s.values[static_cast<size_t>(s.ia[static_cast<size_t>(i)] - 1)] = i % 2 != 0 ? 1e3 : 1e-3;
        s.load();
        s.msglvl = 1;
        const std::string text = s.printed(33);
        s.msglvl = 0;
        EXPECT_EQ(s.error, -4);
        const int64_t result = s.parameter(iparam_hybrid_result);
        EXPECT_LT(result, -10);
        EXPECT_NE(text.find("*** Error in SOLVARA: cgs error iparam(20) " + std::to_string(result)), std::string::npos) << text;
        for (const auto &v : s.unpack(s.x)) ASSERT_TRUE(std::isfinite(v.real()));
        if (mode < 0) continue;
        load_matrix(&s, 2, 3.0, 1); /* positive definite again, of other factors: the next call factors first */
        ASSERT_EQ(s.call(23), 0);
        EXPECT_LE(s.parameter(iparam_hybrid_result), mode);
        EXPECT_LT(error_of(&s, 2, 3.0), 1e-12);
    }
}

namespace
{
/* The room's own door, with factors from a session left aside: the identity as preconditioner (a structure of single columns). */
struct identity_factors {
    std::vector<int64_t> count;
    std::vector<double> ones;
    supernodal_structure structure = {};
    factor_store<double> store = {};
    solve_input<double> solve = {};
    explicit identity_factors(int64_t n, std::vector<double> *b, std::vector<double> *x) : ones(static_cast<size_t>(n), 1.0)
    {
        for (int64_t i = 1; i <= n + 1; ++i) count.push_back(i);
        structure.neqns = structure.supernodes = n;
        structure.perm = structure.invp = structure.xsuper = structure.snode = structure.xlindx = structure.lindx = structure.xlnz =
            structure.xunz = count.data();
        structure.domains = 1;
        structure.domain_table = count.data();
        store.lnz = ones.data();
        store.pivots = count.data();
        solve.matrix_type = 2;
        solve.symmetric = 1;
        solve.nb = 1;
        solve.threads = 1;
        solve.structure = &structure;
        solve.store = &store;
        solve.b = b->data();
        solve.x = x->data();
    }
};

hybrid_result iterate(const std::vector<double> &diagonal, const hybrid_request &request, std::vector<double> *x, int64_t extra_work = 0)
{
    const int64_t n = static_cast<int64_t>(diagonal.size());
    std::vector<double> b(diagonal.size(), 1.0);
    identity_factors f(n, &b, x);
    const residual_matrix<double> matrix = {2, n, 1, 0, f.count.data(), f.count.data(), diagonal.data()};
    const int64_t entries = hybrid_work_entries(n, 1, request.mode) + extra_work;
    std::vector<double> work(static_cast<size_t>(entries), std::nan(""));
    hybrid_result result{};
    hybrid_iteration(&f.solve, &matrix, &request, work.data(), entries, &result);
    return result;
}
} // namespace

/* CG looks at the stall from the check iteration on, CGS at that one count; all others run out of iterations. */
TEST(hybrid, ends_in_the_order_of_the_tests_and_gives_back_the_start)
{
    std::vector<double> spread;
    for (int i = 0; i < 400; ++i) spread.push_back(1.0 + 500.0 * i);
    const std::vector<double> start(spread.size(), 0.5);
    struct expected {
        const char *what;
        hybrid_request request;
        int64_t extra, status, iterations;
    };
    const expected table[] = {
        {"CG out of iterations", {2, 1e-12, 1e4, 3, 9, 0}, 0, -3, 3},
        {"CG stalled", {2, 1e-12, 1e4, 50, 5, 0}, 0, -2, 5},
        {"CGS stalled at the check", {1, 1e-12, 1e30, 50, 5, 0}, 0, -2, 5},
        {"CGS past the check", {1, 1e-12, 1e30, 7, 9, 0}, 0, -3, 7},
        {"CG diverged", {2, 1e-12, 1e-9, 50, 5, 0}, 0, -1, 1},
        {"CGS diverged", {1, 1e-12, 1e-9, 50, 5, 0}, 0, -1, 1},
        {"work size", {1, 1e-12, 1e4, 50, 5, 0}, 1, -4, 0},
    };
    for (const expected &e : table) {
        std::vector<double> x(start);
        const hybrid_result result = iterate(spread, e.request, &x, e.extra);
        EXPECT_EQ(result.status, e.status) << e.what;
        EXPECT_EQ(result.iterations, e.iterations) << e.what;
        EXPECT_EQ(x, start) << e.what;
    }
    std::vector<double> x(3, 0.0);
    EXPECT_EQ(iterate({1, 2, 4}, {2, 1e-12, 1e4, 50, 40, 0}, &x).status, 0);
    EXPECT_NEAR(x[2], 0.25, 1e-14);
}

/* p' A p and the like become zero, or not a number. */
TEST(hybrid, zero_denominators_end_with_a_status)
{
    for (const int64_t mode : {1, 2}) {
        for (const std::vector<double> &diagonal : {std::vector<double>{1, -1}, {0, 0}, {std::nan(""), 1}, {1e308, 1e308}}) {
            std::vector<double> x(diagonal.size(), 0.0);
            const hybrid_result result = iterate(diagonal, {mode, 1e-12, 1e4, 50, 40, 0}, &x);
            EXPECT_LE(result.status, 0);
            if (result.status != 0) { EXPECT_EQ(x, std::vector<double>(diagonal.size(), 0.0)) << mode; }
            for (const double v : x) EXPECT_TRUE(std::isfinite(v)) << mode;
        }
    }
}
