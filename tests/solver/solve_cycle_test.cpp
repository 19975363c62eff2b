#include <gtest/gtest.h>

#include "failure_harness.h"
#include "session.h"

constexpr int64_t all_types[] = {1, 2, -2, 3, 4, -4, 6, 11, 13};

TEST(solve_cycle, every_type_and_precision_in_one_call_and_in_steps)
{
    for (const int64_t type : all_types) {
        for (const int64_t single : {0, 1}) {
            const service_memory before = memory_in_use();
            {
                session s;
                s.parameter(iparam_use_defaults) = 0;
                load_grid(&s, type, 12);
                iparam_at(s.iparam, iparam_use_defaults) = 1;
                iparam_at(s.iparam, iparam_preprocessing) = 2;
                s.parameter(iparam_single_precision) = single;
                s.load();
                ASSERT_EQ(s.call(13), 0) << type << " " << single;
                EXPECT_LT(backward_error(&s, s.unpack(s.x)), single ? 1e-5 : 1e-13) << type << " " << single;
                for (const int64_t ido : {11, 22, 33}) ASSERT_EQ(s.call(ido), 0) << type << " " << ido;
                EXPECT_LT(backward_error(&s, s.unpack(s.x)), single ? 1e-5 : 1e-13) << type << " " << single;
                ASSERT_EQ(s.call(-1), 0);
            }
            EXPECT_EQ(memory_in_use().direct_bytes, before.direct_bytes);
        }
    }
}
