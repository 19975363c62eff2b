#include "factor/update_program.h"

#include "factor/narrow_update.h"

/* Two passes over the row lists, sources ascending: words of each target, then the words themselves. */

namespace
{

/* A program is worth its memory when it has no more words than this for each entry of the factors, its supernodes are this narrow on the
   average, and the lengths of the columns, squared and summed, are not more than this for each entry: with more arithmetic the groups and
   fronts of the other drivers pay (saddle point and circuit of 10,000 rows, 800 to 1,300 for each entry: 1.1 to 1.25 times as fast).
   Found on grids and circuits. */
constexpr int64_t words_per_entry = 3, squares_per_entry = 64;
constexpr int64_t columns_on_average = 8, few_words = 32768;

/* False for a type without factors. */
bool find_kind(int64_t matrix_type, factor_kind *kind)
{
    for (const matrix_type_row &row : matrix_type_rows) {
        if (row.code != matrix_type) continue;
        *kind = row.kind;
        return true;
    }
    return false;
}

/* Kinds of factors differ in which updates are small. */
int64_t update_words(factor_kind kind, const program_update &u)
{
    const bool tiny =
        kind == factor_kind::ldlt ? is_tiny<factor_kind::ldlt>(u.q, u.k, u.width) : is_tiny<factor_kind::cholesky>(u.q, u.k, u.width);
    return tiny ? program_places + u.q : int64_t{program_large_words};
}

void write_update(const supernodal_structure &s, factor_kind kind, const program_update &u, int32_t *word)
{
    word[program_rows] = static_cast<int32_t>(u.q);
    if (update_words(kind, u) == program_large_words) {
        word[program_width] = 0;
        word[program_source] = static_cast<int32_t>(u.source);
        return;
    }
    const int64_t rows = supernode_rows(s, u.source);
    word[program_width] = static_cast<int32_t>(u.width);
    word[program_columns] = static_cast<int32_t>(u.k);
    word[program_lower] = static_cast<int32_t>(s.xlnz[s.xsuper[u.source - 1] - 1] - 1 + rows - u.q);
    word[program_ld] = static_cast<int32_t>(rows);
    for_each_place(s, u, [=](int64_t i, int64_t at) { word[program_places + i] = static_cast<int32_t>(at); });
}

void build_triangle_program(const update_program_input &in, factor_kind kind, int32_t *program)
{
    const supernodal_structure &s = *in.structure;
    int64_t *const next = in.scratch_a; /* words of a target, then where its next update goes */
    for (int64_t target = 1; target <= s.supernodes; ++target) next[target - 1] = 0;
    for_each_update(s, [&](const program_update &u) { next[u.target - 1] += update_words(kind, u); });
    program[0] = static_cast<int32_t>(kind);
    int64_t at = 1;
    for (int64_t target = 1; target <= s.supernodes; ++target) {
        const int64_t words = next[target - 1];
        program[at] = static_cast<int32_t>(words);
        next[target - 1] = at + 1;
        at += 1 + words;
    }
    for_each_update(s, [&](const program_update &u) {
        write_update(s, kind, u, program + next[u.target - 1]);
        next[u.target - 1] += update_words(kind, u);
    });
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

int64_t most_words(const supernodal_structure &s)
{
    return words_per_entry * (s.nnz_l + s.nnz_u) + few_words;
}

} // namespace

int64_t update_program_words(int64_t matrix_type, const supernodal_structure *structure)
{
    const supernodal_structure &s = *structure;
    const int64_t entries = s.nnz_l + s.nnz_u;
    factor_kind kind = factor_kind::lu;
    if (!find_kind(matrix_type, &kind) || entries > INT32_MAX / words_per_entry - few_words) return 0;
    if (s.neqns > columns_on_average * s.supernodes || much_arithmetic(s)) return 0;
    if (kind == factor_kind::lu) return product_program_words(s, most_words(s));
    int64_t words = kind == factor_kind::cholesky ? pushing_program_words(s, most_words(s)) : 0;
    if (words > 0) return words;
    words = 1 + s.supernodes;
    for_each_update(s, [&](const program_update &u) { words += update_words(kind, u); });
    return words <= most_words(s) ? words : 0;
}

void build_update_program(const update_program_input *input, int32_t *program)
{
    const supernodal_structure &s = *input->structure;
    factor_kind kind = factor_kind::lu;
    if (!find_kind(input->matrix_type, &kind)) return;
    if (kind == factor_kind::lu)
        build_product_program(*input, program);
    else if (kind == factor_kind::cholesky && pushing_program_words(s, most_words(s)) > 0)
        build_pushing_program(s, program);
    else
        build_triangle_program(*input, kind, program);
}
