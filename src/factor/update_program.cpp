#include "factor/update_program.h"

#include "factor/narrow_update.h"

/* Two passes over the row lists, sources ascending: words of each target, then the words themselves. The offsets of a source's rows in its
   targets come from one walk over both row lists, since both ascend. */

namespace
{

/* A program is worth its memory when it has no more words than this for each entry of the factors, its supernodes are this narrow on the
   average, and the lengths of the columns, squared and summed, are not more than this for each entry: with more arithmetic the groups and
   fronts of the other drivers pay (saddle point and circuit of 10,000 rows, 800 to 1,300 for each entry: 1.1 to 1.25 times as fast).
   Found on grids and circuits. */
constexpr int64_t words_per_entry = 3, squares_per_entry = 64;
constexpr int64_t columns_on_average = 8, few_words = 32768;

/* Kinds of factors differ in which updates are small. */
bool small_update(factor_kind kind, int64_t q, int64_t k, int64_t width)
{
    if (kind == factor_kind::ldlt) return is_tiny<factor_kind::ldlt>(q, k, width);
    return is_tiny<factor_kind::lu>(q, k, width);
}

factor_kind kind_of(int64_t matrix_type)
{
    for (const matrix_type_row &row : matrix_type_rows)
        if (row.code == matrix_type) return row.kind;
    return factor_kind::lu;
}

/* Call visit(source, target, i, k) for each update: rows i .. i + k - 1 of the source's list (from 0) are columns of the target. */
template <typename visit_type>
void for_each_update(const supernodal_structure &s, const visit_type &visit)
{
    for (int64_t source = 1; source <= s.supernodes; ++source) {
        const int64_t rows = supernode_rows(s, source), *list = supernode_row_list(s, source);
        for (int64_t i = supernode_columns(s, source), k = 0; i < rows; i += k) {
            const int64_t target = s.snode[list[i] - 1], end_column = s.xsuper[target];
            for (k = 1; i + k < rows && list[i + k] < end_column;) ++k;
            visit(source, target, i, k);
        }
    }
}

int64_t update_words(factor_kind kind, int64_t q, int64_t k, int64_t width)
{
    return small_update(kind, q, k, width) ? program_places + q : int64_t{program_large_words};
}

void write_places(const supernodal_structure &s, int64_t target, const int64_t *list, int64_t q, int32_t *place)
{
    const int64_t *row = supernode_row_list(s, target);
    int32_t at = 0;
    for (int64_t i = 0; i < q; ++i) {
        while (row[at] < list[i]) ++at;
        place[i] = at;
    }
}

bool much_arithmetic(const supernodal_structure &s)
{
    double squares = 0;
    for (int64_t number = 1; number <= s.supernodes; ++number) {
        const double rows = static_cast<double>(supernode_rows(s, number));
        squares += static_cast<double>(supernode_columns(s, number)) * rows * rows;
    }
    return squares > static_cast<double>(squares_per_entry) * static_cast<double>(s.nnz_l);
}

} // namespace

int64_t update_program_words(int64_t matrix_type, const supernodal_structure *structure)
{
    const supernodal_structure &s = *structure;
    const int64_t entries = s.nnz_l + s.nnz_u;
    if (entries > INT32_MAX / words_per_entry || s.neqns > columns_on_average * s.supernodes || much_arithmetic(s)) return 0;
    const factor_kind kind = kind_of(matrix_type);
    int64_t words = 1 + s.supernodes;
    for_each_update(s, [&](int64_t source, int64_t, int64_t i, int64_t k) {
        words += update_words(kind, supernode_rows(s, source) - i, k, supernode_columns(s, source));
    });
    return words <= words_per_entry * entries + few_words ? words : 0;
}

void build_update_program(int64_t matrix_type, const supernodal_structure *structure, int64_t *scratch, int32_t *program)
{
    const supernodal_structure &s = *structure;
    const factor_kind kind = kind_of(matrix_type);
    int64_t *const next = scratch; /* words of a target, then where its next update goes */
    for (int64_t target = 1; target <= s.supernodes; ++target) next[target - 1] = 0;
    for_each_update(s, [&](int64_t source, int64_t target, int64_t i, int64_t k) {
        next[target - 1] += update_words(kind, supernode_rows(s, source) - i, k, supernode_columns(s, source));
    });
    program[0] = static_cast<int32_t>(kind);
    int64_t at = 1;
    for (int64_t target = 1; target <= s.supernodes; ++target) {
        const int64_t words = next[target - 1];
        program[at] = static_cast<int32_t>(words);
        next[target - 1] = at + 1;
        at += 1 + words;
    }
    for_each_update(s, [&](int64_t source, int64_t target, int64_t i, int64_t k) {
        const int64_t rows = supernode_rows(s, source), q = rows - i, width = supernode_columns(s, source);
        const int64_t first = s.xsuper[source - 1];
        int32_t *const word = program + next[target - 1];
        next[target - 1] += update_words(kind, q, k, width);
        word[program_rows] = static_cast<int32_t>(q);
        if (!small_update(kind, q, k, width)) {
            word[program_width] = 0;
            word[program_source] = static_cast<int32_t>(source);
            return;
        }
        word[program_width] = static_cast<int32_t>(width);
        word[program_columns] = static_cast<int32_t>(k);
        word[program_lower] = static_cast<int32_t>(s.xlnz[first - 1] - 1 + i);
        word[program_upper] = kind == factor_kind::lu ? static_cast<int32_t>(s.xunz[first - 1] - 1 + i - width) : 0;
        word[program_ld] = static_cast<int32_t>(rows);
        write_places(s, target, supernode_row_list(s, source) + i, q, word + program_places);
    });
}
