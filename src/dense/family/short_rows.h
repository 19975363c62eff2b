/* Columns of a handful of rows, as most of a small sparse factor are: a loop of so few steps takes longer than what it does. */
#pragma once

#include "dense/family/vector.h"

namespace WKL_FAMILY
{
namespace
{

/* Rows under a real column whose work stands without a loop. */
constexpr int64_t short_rows = 8;
template <int64_t rows>
struct row_count {
    static constexpr int64_t value = rows;
};

/* Call step with the number of rows, 0 to short_rows, as a constant. */
template <typename step_type>
DENSE_INLINE void with_short_rows(int64_t rows, const step_type &step)
{
    switch (rows) {
    case 0:
        return step(row_count<0>());
    case 1:
        return step(row_count<1>());
    case 2:
        return step(row_count<2>());
    case 3:
        return step(row_count<3>());
    case 4:
        return step(row_count<4>());
    case 5:
        return step(row_count<5>());
    case 6:
        return step(row_count<6>());
    case 7:
        return step(row_count<7>());
    default:
        return step(row_count<short_rows>());
    }
}

} // namespace
} // namespace WKL_FAMILY
