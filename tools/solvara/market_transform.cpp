#include "matrix_market.h"

#include <numeric>

static size_t value_width(const market_matrix &a)
{
    return a.field == market_field::complex ? 2 : 1;
}

/* Place value k of `a` as entry (row, column) of `b`, whose row pointers serve as cursors. */
static void place(const market_matrix &a, size_t k, int64_t row, int64_t column, double real_sign, double imaginary_sign,
                  std::vector<int64_t> *cursor, market_matrix *b)
{
    const size_t width = value_width(a), to = static_cast<size_t>((*cursor)[static_cast<size_t>(row) - 1]++) - 1;
    b->ja[to] = column;
    b->value[to * width] = real_sign * a.value[k * width];
    if (width == 2) b->value[to * width + 1] = imaginary_sign * a.value[k * width + 1];
}

/* Row pointers from the counts that stand in ia[row], and room for the entries. */
static void open_rows(market_matrix *b, size_t width)
{
    b->ia[0] = 1;
    std::partial_sum(b->ia.begin(), b->ia.end(), b->ia.begin());
    const size_t count = static_cast<size_t>(b->ia.back() - 1);
    b->ja.resize(count);
    b->value.resize(count * width);
}

market_matrix market_expand(const market_matrix &a)
{
    if (a.symmetry == market_symmetry::general) return a;
    market_matrix b;
    b.field = a.field;
    b.array = a.array;
    b.rows = a.rows;
    b.columns = a.columns;
    b.file_entries = a.file_entries;
    b.ia.assign(a.ia.size(), 0);
    const auto entries_of = [&](int64_t i) {
        return std::pair(static_cast<size_t>(a.ia[static_cast<size_t>(i) - 1] - 1), static_cast<size_t>(a.ia[static_cast<size_t>(i)] - 1));
    };
    for (int64_t i = 1; i <= a.rows; ++i) {
        for (auto [k, end] = entries_of(i); k < end; ++k) {
            ++b.ia[static_cast<size_t>(i)];
            if (a.ja[k] != i) ++b.ia[static_cast<size_t>(a.ja[k])];
        }
    }
    open_rows(&b, value_width(a));
    std::vector<int64_t> cursor(b.ia.begin(), b.ia.end() - 1);
    const double mirror_real = a.symmetry == market_symmetry::skew_symmetric ? -1.0 : 1.0;
    const double mirror_imaginary = a.symmetry == market_symmetry::symmetric ? 1.0 : -1.0;
    const bool real_diagonal = a.symmetry == market_symmetry::hermitian;
    /* Rows in ascending order: row i gets its own entries (columns up to i) first, and then those mirrored from later rows. */
    for (int64_t i = 1; i <= a.rows; ++i) {
        for (auto [k, end] = entries_of(i); k < end; ++k) {
            place(a, k, i, a.ja[k], 1.0, real_diagonal && a.ja[k] == i ? 0.0 : 1.0, &cursor, &b);
            if (a.ja[k] != i) place(a, k, a.ja[k], i, mirror_real, mirror_imaginary, &cursor, &b);
        }
    }
    return b;
}

market_matrix market_transpose(const market_matrix &a)
{
    market_matrix b;
    b.field = a.field;
    b.symmetry = a.symmetry;
    b.array = a.array;
    b.rows = a.columns;
    b.columns = a.rows;
    b.file_entries = a.file_entries;
    b.ia.assign(static_cast<size_t>(a.columns) + 1, 0);
    for (const int64_t c : a.ja) ++b.ia[static_cast<size_t>(c)];
    open_rows(&b, value_width(a));
    std::vector<int64_t> cursor(b.ia.begin(), b.ia.end() - 1);
    const double real_sign = a.symmetry == market_symmetry::skew_symmetric ? -1.0 : 1.0;
    const bool negate_imaginary = a.symmetry == market_symmetry::skew_symmetric || a.symmetry == market_symmetry::hermitian;
    for (int64_t i = 1; i <= a.rows; ++i) {
        const size_t end = static_cast<size_t>(a.ia[static_cast<size_t>(i)] - 1);
        for (size_t k = static_cast<size_t>(a.ia[static_cast<size_t>(i) - 1] - 1); k < end; ++k) {
            place(a, k, a.ja[k], i, real_sign, negate_imaginary ? -1.0 : 1.0, &cursor, &b);
        }
    }
    return b;
}
