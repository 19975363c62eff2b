#include "matrix_market.h"

#include <algorithm>
#include <numeric>

void market_compress(const std::vector<int64_t> &row, const std::vector<int64_t> &column, const std::vector<double> &value,
                     market_matrix *a)
{
    const size_t width = a->field == market_field::complex ? 2 : 1;
    const size_t count = row.size();
    std::vector<int64_t> start(static_cast<size_t>(a->rows) + 1, 0);
    for (const int64_t i : row) ++start[static_cast<size_t>(i)];
    std::partial_sum(start.begin(), start.end(), start.begin());
    std::vector<size_t> order(count), next(start.begin(), start.end() - 1);
    for (size_t k = 0; k < count; ++k) order[next[static_cast<size_t>(row[k]) - 1]++] = k;

    a->ia.assign(static_cast<size_t>(a->rows) + 1, 1);
    a->ja.reserve(count);
    a->value.reserve(count * width);
    for (size_t i = 0; i < static_cast<size_t>(a->rows); ++i) {
        const auto first = order.begin() + start[i], last = order.begin() + start[i + 1];
        const auto by_column = [&](size_t s, size_t t) { return column[s] < column[t]; };
        if (!std::is_sorted(first, last, by_column)) std::stable_sort(first, last, by_column);
        const size_t row_begin = a->ja.size();
        for (auto k = first; k != last; ++k) {
            const bool duplicate = a->ja.size() > row_begin && a->ja.back() == column[*k];
            if (!duplicate) {
                a->ja.push_back(column[*k]);
                a->value.insert(a->value.end(), width, 0.0);
            }
            double *sum = a->value.data() + a->value.size() - width;
            for (size_t c = 0; c < width; ++c) sum[c] += value[*k * width + c];
        }
        a->ia[i + 1] = static_cast<int64_t>(a->ja.size()) + 1;
    }
}
