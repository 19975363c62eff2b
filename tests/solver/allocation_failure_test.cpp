/* Every allocation of every phase fails once: the call ends with error -2 and the words of a stage, gives nothing away, and the same handle
   then works. */
#include <gtest/gtest.h>

#include "failure_harness.h"
#include "session.h"

namespace
{
struct scenario {
    const char *name;
    int64_t matrix_type, ido, nb, refinement, hybrid;
    int64_t prepare; /* ido that runs undisturbed before, 0 none */
    bool zero_based, drop_diagonal;
};

constexpr scenario scenarios[] = {
    {"positive definite in one call", 2, 13, 1, 0, 0, 0, false, false},
    {"complex nonsymmetric in one call, matched and refined", 13, 13, 2, -2, 0, 0, false, false},
    {"indefinite from 0, diagonal entries missing", -2, 13, 1, 2, 0, 0, true, true},
    {"Hermitian factorization", 4, 22, 1, 0, 0, 11, true, false},
    {"nonsymmetric solve, many right-hand sides", 11, 33, 7, 0, 0, 12, false, false},
    {"iteration", 2, 23, 1, 0, 62, 13, false, false},
};

void drop_some_diagonals(session *s)
{
    std::vector<int64_t> ia(1, 1), ja;
    std::vector<std::complex<double>> values;
    for (int64_t i = 0; i < s->neqns; ++i) {
        for (int64_t p = s->ia[static_cast<size_t>(i)] - 1; p < s->ia[static_cast<size_t>(i) + 1] - 1; ++p) {
            if (i % 5 == 2 && i + 1 < s->neqns && s->ja[static_cast<size_t>(p)] == i + 1) continue;
            ja.push_back(s->ja[static_cast<size_t>(p)]);
            values.push_back(s->values[static_cast<size_t>(p)]);
        }
        ia.push_back(static_cast<int64_t>(ja.size()) + 1);
    }
    s->ia = ia;
    s->ja = ja;
    s->values = values;
}

void load_scenario(session *s, const scenario &what)
{
    s->matrix_type = what.matrix_type;
    load_grid(s, what.matrix_type, 8, what.nb);
    s->parameter(iparam_use_defaults) = 1;
    s->parameter(iparam_preprocessing) = 2;
    s->parameter(iparam_refinement_request) = what.refinement;
    s->parameter(iparam_hybrid) = what.hybrid;
    s->parameter(iparam_perturbation_exponent) = what.matrix_type > 10 ? 13 : 8;
    s->parameter(iparam_pivoting) = what.matrix_type == -2 ? 1 : 0;
    if (what.matrix_type > 10) s->parameter(iparam_matching) = s->parameter(iparam_scaling) = 1;
    if (what.drop_diagonal) drop_some_diagonals(s);
    if (what.zero_based) s->to_zero_based();
    s->load();
}

/* Words of a memory failure: the class, one of the stages, the total. */
bool tells_of_memory(const std::string &text)
{
    return text.find("(     insufficient_memory) error_num= -2") != std::string::npos &&
           text.find("*** Error in SOLVARA memory allocation: ") != std::string::npos &&
           text.find("total memory wanted here: ") != std::string::npos;
}
} // namespace

TEST(allocation_failure, each_request_of_each_phase)
{
    for (const scenario &what : scenarios) {
        SCOPED_TRACE(what.name);
        const service_memory before = memory_in_use();
        const auto run = [&](int64_t k) {
            SCOPED_TRACE(k);
            session s;
            load_scenario(&s, what);
            std::string text;
            {
                service_system_allocator failing = service_system;
                service_system.allocate = [](uint64_t size) { return std::malloc(size); };
                service_system.resize = [](void *block, uint64_t size) { return std::realloc(block, size); };
                if (what.prepare != 0) { ASSERT_EQ(s.call(what.prepare), 0); }
                service_system = failing;
                s.load();
                s.msglvl = 1;
                text = s.printed(what.ido);
                allocation_failure::disarm();
            }
            if (s.error != 0) {
                EXPECT_EQ(s.error, -2) << text;
                EXPECT_TRUE(allocation_failure::fired());
                EXPECT_TRUE(tells_of_memory(text)) << text;
            }
            s.msglvl = 0;
            s.load();
            EXPECT_EQ(s.call(13), 0);
            if (!what.drop_diagonal && !what.zero_based) { EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-12); }
            EXPECT_EQ(s.call(-1), 0);
            EXPECT_EQ(memory_in_use().direct_blocks, before.direct_blocks);
            EXPECT_EQ(memory_in_use().pooled_blocks, before.pooled_blocks);
        };
        EXPECT_GE(for_every_failing_allocation(run), what.prepare == 0 ? 20 : 0);
    }
}
