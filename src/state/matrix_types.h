/* The matrix types as data. */
#pragma once

#include <cstdint>

enum class factor_kind { cholesky, ldlt, lu };

struct matrix_type_row {
    int64_t code;
    int64_t element_words; /* 1 real, 2 complex */
    factor_kind kind;
    bool hermitian; /* the unstored triangle is the conjugate of the stored one */
};

inline constexpr matrix_type_row matrix_type_rows[] = {
    {1, 1, factor_kind::lu, false},   {2, 1, factor_kind::cholesky, false}, {-2, 1, factor_kind::ldlt, false},
    {3, 2, factor_kind::lu, false},   {4, 2, factor_kind::cholesky, true},  {-4, 2, factor_kind::ldlt, true},
    {6, 2, factor_kind::ldlt, false}, {11, 1, factor_kind::lu, false},      {13, 2, factor_kind::lu, false},
};
