/* Random calls in every build; the fuzzer looks for the same faults by coverage. */
#include <gtest/gtest.h>
#include <random>

#include "hostile_calls.h"

TEST(hostile_input, random_calls_end_with_a_code_and_leave_a_working_handle)
{
    constexpr int64_t types[] = {1, 2, -2, 3, 4, -4, 6, 11, 13};
    const service_memory before = memory_in_use();
    for (uint64_t seed = 1; seed <= 400; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937_64 engine(seed);
        std::vector<uint8_t> bytes(400);
        for (uint8_t &byte : bytes) byte = static_cast<uint8_t>(engine());
        byte_source source{bytes.data(), bytes.size()};
        session s;
        const char *fault = nullptr;
        {
            output_capture silence;
            fault = hostile_calls(&s, &source);
        }
        ASSERT_STREQ(fault, nullptr);
        s.max_fac_store = s.matrix_number = 1;
        s.msglvl = 0;
        load_grid(&s, types[seed % 9], 5);
        iparam_defaults(s.iparam, s.matrix_type);
        s.load();
        ASSERT_EQ(s.call(13), 0);
        EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-12);
        ASSERT_EQ(s.call(-1), 0);
        ASSERT_EQ(memory_in_use().direct_blocks, before.direct_blocks);
    }
}
