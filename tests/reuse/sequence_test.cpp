/* Several factorizations on one handle: a random sequence of calls beside a model of what the handle must hold. A factorization that is
   lost, mixed up with another number, freed twice or kept alive shows as a wrong solution, a wrong code, or bytes that stay. */
#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "failure_harness.h"
#include "systems.h"

namespace
{
constexpr int64_t store = 4, side = 4, n = side * side * side, variants = 6;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int steps = 1500;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr int steps = 1500;
#else
constexpr int steps = 10000;
#endif
#else
constexpr int steps = 10000;
#endif

/* Matrices of one pattern: variant k has its off-diagonal entries divided by k + 1. */
entry_map variant_of(int64_t type, int64_t k)
{
    entry_map a = generated_entries(type > 10 ? type - 10 : type, side, side, side, 5);
    for (auto &[place, v] : a)
        if (place.first != place.second) v /= static_cast<double>(k + 1);
    return a;
}

/* What the handle holds: the analysis, and which variant is factored under each number. */
struct model {
    bool analysed = false;
    std::optional<int64_t> factored[store];
    void analyse()
    {
        *this = {};
        analysed = true;
    }
};

struct player {
    std::mt19937 random;
    session s;
    model known;
    std::vector<entry_map> matrix;
    int64_t held = 0; /* variant whose values are loaded */
    int64_t failures = 0, solves = 0;

    player(int64_t type, unsigned seed) : random(seed)
    {
        for (int64_t k = 0; k < variants; ++k) matrix.push_back(variant_of(type, k));
        iparam_defaults(s.iparam, type);
        s.max_fac_store = store;
        load_entries(&s, type, n, matrix[0], 1, 1);
    }
    int64_t pick(int64_t count)
    {
        return static_cast<int64_t>(random() % static_cast<uint64_t>(count));
    }
    void load_variant()
    {
        held = pick(variants);
        load_entries(&s, s.matrix_type, n, matrix[static_cast<size_t>(held)], 1 + pick(3), static_cast<unsigned>(random()));
    }
    void expect_solution(int64_t variant)
    {
        ++solves;
        const double bound = s.parameter(iparam_single_precision) == 1 ? 1e-5 : 1e-13;
        ASSERT_LE(backward_error(matrix[static_cast<size_t>(variant)], 0, n, s.rhs, s.unpack(s.x)), bound);
    }
    /* The outcome of a call under the model; -2 only where an allocation was made to fail. */
    void expect_code(int64_t code, int64_t want)
    {
        if (allocation_failure::fired() && code == -2) {
            ++failures;
            return;
        }
        ASSERT_EQ(code, want);
    }
    void run_analysis(int64_t ido)
    {
        load_variant();
        const int64_t number = s.matrix_number, code = s.call(ido);
        expect_code(code, 0);
        known = {};
        if (code != 0) {
            allocation_failure::disarm();
            s.load();
            ASSERT_EQ(s.call(11), 0) << "after a failure the analysis runs anew";
            known.analyse();
            return;
        }
        known.analyse();
        if (ido != 11) known.factored[number - 1] = held;
        if (ido == 13) expect_solution(held);
    }
    void run_factorization(int64_t ido)
    {
        load_variant();
        const int64_t code = s.call(ido);
        expect_code(code, known.analysed ? 0 : -1);
        if (code == 0) {
            known.factored[s.matrix_number - 1] = held;
            if (ido == 23) expect_solution(held);
        } else if (known.analysed) {
            forget_after_failure();
        }
    }
    void run_solve()
    {
        const auto &factored = known.factored[s.matrix_number - 1];
        const bool there = known.analysed && factored.has_value();
        load_entries(&s, s.matrix_type, n, matrix[static_cast<size_t>(there ? *factored : held)], 1 + pick(3), 7);
        const int64_t code = s.call(33);
        expect_code(code, there ? 0 : -1);
        if (code == 0) expect_solution(*factored);
    }
    /* A factorization that failed may have kept the old factors or none; both are sound, a wrong answer is not. */
    void forget_after_failure()
    {
        auto &factored = known.factored[s.matrix_number - 1];
        allocation_failure::disarm();
        const int64_t failed_variant = held;
        s.load();
        if (s.call(33) != 0) {
            factored.reset();
            return;
        }
        const auto x = s.unpack(s.x);
        const auto fits = [&](int64_t k) { return backward_error(matrix[static_cast<size_t>(k)], 0, n, s.rhs, x) < 1e-5; };
        if (factored.has_value() && fits(*factored)) return;
        ASSERT_TRUE(fits(failed_variant)) << "the factors of neither matrix";
        factored = failed_variant;
    }
    void step()
    {
        s.matrix_number = 1 + pick(store);
        const int64_t what = pick(100);
        const bool failing = pick(10) == 0;
        const allocation_failure failure(failing ? pick(40) : -1);
        if (what < 3) {
            ASSERT_EQ(s.call(-1), 0);
            known = {};
        } else if (what < 9 || (!known.analysed && what < 60)) {
            run_analysis(11 + pick(3));
        } else if (what < 40) {
            run_factorization(pick(2) == 0 ? 22 : 23);
        } else if (what < 85) {
            run_solve();
        } else {
            const int64_t code = s.call(0);
            if (known.analysed) {
                ASSERT_EQ(code, 0);
                known.factored[s.matrix_number - 1].reset();
            } else {
                expect_code(code, -1);
                if (code == 0 || code == -2) return;
            }
        }
    }
};

TEST(sequence, of_calls_on_one_handle_against_a_model)
{
    use_threads(1);
    const service_memory before = memory_in_use();
    int64_t failures = 0, solves = 0;
    unsigned seed = 0;
    for (const int64_t type : all_matrix_types) {
        SCOPED_TRACE(testing::Message() << "type " << type);
        {
            const auto p = std::make_unique<player>(type, ++seed);
            if (type == 4 || type == 11) p->s.parameter(iparam_single_precision) = 1;
            p->s.load();
            for (int k = 0; k < steps / 9; ++k) {
                p->step();
                if (HasFatalFailure()) FAIL() << "step " << k;
            }
            failures += p->failures;
            solves += p->solves;
            ASSERT_EQ(p->s.call(-1), 0);
        }
        EXPECT_EQ(memory_in_use().direct_bytes, before.direct_bytes);
        EXPECT_EQ(memory_in_use().pooled_blocks, before.pooled_blocks);
    }
    EXPECT_GT(failures, steps / 200);
    EXPECT_GT(solves, steps / 10);
    use_threads(-1);
}
} // namespace
