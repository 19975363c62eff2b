#include <gtest/gtest.h>

#include "failure_harness.h"
#include "session.h"
#include "solver/control.h"

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

TEST(solve_cycle, matched_and_scaled_types_with_threads_and_schemes)
{
    for (const int64_t type : {-2, -4, 6, 11, 13}) {
        for (const int64_t scheme : {0, 1, 2, 3}) {
            for (const int64_t matching : {0, 1, 2}) {
                session s;
                load_grid(&s, type, 20, 2);
                iparam_defaults(s.iparam, type);
                s.parameter(iparam_matching) = matching;
                s.parameter(iparam_scaling) = matching > 0 ? 1 : 0;
                s.parameter(iparam_preprocessing) = scheme == 3 ? 0 : 2;
                s.parameter(iparam_scheme) = scheme == 1 ? 1 : 0;
                s.parameter(iparam_reproducible_units) = scheme == 2 ? 4 : 0;
                for (size_t p = 0; p < s.values.size(); p += 3) s.values[p] *= 1e3; /* something to scale */
                for (const int64_t ido : {13, 22, 33}) {
                    s.load();
                    ASSERT_EQ(s.call(ido), 0) << type << " " << scheme << " " << matching;
                }
                /* without matching the pivots are taken inside their blocks as they come */
                EXPECT_LT(backward_error(&s, s.unpack(s.x)), matching > 0 ? 1e-12 : 1e-10) << type << " " << scheme << " " << matching;
            }
        }
    }
}
