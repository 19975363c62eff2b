/* Entries collected in any order, then compressed. Inside this folder only. */
#pragma once

#include "matrix_market.h"

struct assembly {
    std::vector<int64_t> row, column;
    std::vector<double> value;
};

inline void add(assembly *s, int64_t row, int64_t column, double value)
{
    s->row.push_back(row);
    s->column.push_back(column);
    s->value.push_back(value);
}

inline void add(assembly *s, int64_t row, int64_t column, double real, double imaginary)
{
    add(s, row, column, real);
    s->value.push_back(imaginary);
}

inline market_matrix assembled(const assembly &s, int64_t n, market_field field, market_symmetry symmetry)
{
    market_matrix a;
    a.field = field;
    a.symmetry = symmetry;
    a.rows = n;
    a.columns = n;
    a.file_entries = static_cast<int64_t>(s.row.size());
    market_compress(s.row, s.column, s.value, &a);
    return a;
}
