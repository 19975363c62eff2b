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

/* One update: rows `row` .. of the source's list (from 0), q of them, the first k columns of the target. */
struct program_update {
    int64_t source, target, row, q, k, width;
    const int64_t *list; /* [q] */
};

/* Call visit for each update, sources ascending. */
template <typename visit_type>
void for_each_update(const supernodal_structure &s, const visit_type &visit)
{
    for (int64_t source = 1; source <= s.supernodes; ++source) {
        const int64_t rows = supernode_rows(s, source), width = supernode_columns(s, source), *list = supernode_row_list(s, source);
        for (int64_t i = width, k = 0; i < rows; i += k) {
            const int64_t target = s.snode[list[i] - 1], end_column = s.xsuper[target];
            for (k = 1; i + k < rows && list[i + k] < end_column;) ++k;
            visit(program_update{source, target, i, rows - i, k, width, list + i});
        }
    }
}

/* place(i, offset) for each row of an update: its offset in the row list of the target. */
template <typename place_type>
void for_each_place(const supernodal_structure &s, const program_update &u, const place_type &place)
{
    const int64_t *row = supernode_row_list(s, u.target);
    int64_t at = 0;
    for (int64_t i = 0; i < u.q; ++i) {
        while (row[at] < u.list[i]) ++at;
        place(i, at);
    }
}

void write_large(const program_update &u, int32_t *word)
{
    word[program_width] = 0;
    word[program_rows] = static_cast<int32_t>(u.q);
    word[program_source] = static_cast<int32_t>(u.source);
}

/* ---- one triangle: all rows of an update take part ---- */

/* Kinds of factors differ in which updates are small. */
int64_t update_words(factor_kind kind, const program_update &u)
{
    const bool tiny =
        kind == factor_kind::ldlt ? is_tiny<factor_kind::ldlt>(u.q, u.k, u.width) : is_tiny<factor_kind::cholesky>(u.q, u.k, u.width);
    return tiny ? program_places + u.q : int64_t{program_large_words};
}

void write_update(const supernodal_structure &s, factor_kind kind, const program_update &u, int32_t *word)
{
    if (update_words(kind, u) == program_large_words) return write_large(u, word);
    word[program_width] = static_cast<int32_t>(u.width);
    word[program_rows] = static_cast<int32_t>(u.q);
    word[program_columns] = static_cast<int32_t>(u.k);
    word[program_lower] = static_cast<int32_t>(s.xlnz[s.xsuper[u.source - 1] - 1] - 1 + u.row);
    word[program_upper] = 0;
    word[program_ld] = static_cast<int32_t>(u.row + u.q);
    for_each_place(s, u, [=](int64_t i, int64_t at) { word[program_places + i] = static_cast<int32_t>(at); });
}

/* ---- LU: what can hold anything takes part ---- */

enum reach : uint8_t { reaches_lower = 1, reaches_upper = 2 };

/* Mark the rows of L and columns of U that the given entries reach. The distance of a destination from the first entry of its column tells
   its row. */
void mark_given(const supernodal_structure &s, const position_map &map, uint8_t *reached)
{
    for (int64_t i = 0; i < s.xlindx[s.supernodes] - 1; ++i) reached[i] = 0;
    for (int64_t number = 1; number <= s.supernodes; ++number) {
        uint8_t *const own = reached + (s.xlindx[number - 1] - 1), *const beyond = own + supernode_columns(s, number);
        for (int64_t c = s.xsuper[number - 1]; c < s.xsuper[number]; ++c) {
            for (int64_t p = map.start_l[c - 1]; p < map.start_l[c]; ++p) own[map.dest_l[p - 1] - s.xlnz[c - 1]] |= reaches_lower;
            for (int64_t p = map.start_u[c - 1]; p < map.start_u[c]; ++p) beyond[map.dest_u[p - 1] - s.xunz[c - 1]] |= reaches_upper;
        }
    }
}

const uint8_t *reached_by(const supernodal_structure &s, const program_update &u, const uint8_t *reached)
{
    return reached + (s.xlindx[u.source - 1] - 1) + u.row;
}

listed_counts count_listed(const program_update &u, const uint8_t *from)
{
    listed_counts count = {};
    for (int64_t i = 0; i < u.q; ++i) {
        const int64_t lower = (from[i] & reaches_lower) != 0, upper = (from[i] & reaches_upper) != 0;
        count.rows += lower;
        count.columns += upper;
        if (i >= u.k) continue;
        count.own_rows += lower;
        count.own_columns += upper;
    }
    return count;
}

/* Words of an update; 0 for one without a product. Few products are listed: those of both sides, unlike those of one triangle. */
int64_t listed_words(const program_update &u, const listed_counts &c)
{
    const int64_t products = (c.own_columns * c.rows + c.own_rows * (c.columns - c.own_columns)) * u.width;
    if (products == 0) return 0;
    return u.q <= program_most_rows && products <= 2 * tiny_products ? program_places + c.rows + c.columns : int64_t{program_large_words};
}

/* What the update lets the target hold. */
void pass_on(const supernodal_structure &s, const program_update &u, const listed_counts &c, const uint8_t *from, uint8_t *reached)
{
    const int passing = (c.own_columns > 0 ? reaches_lower : 0) | (c.own_rows > 0 ? reaches_upper : 0);
    uint8_t *const own = reached + (s.xlindx[u.target - 1] - 1);
    if (passing != 0) for_each_place(s, u, [=](int64_t i, int64_t at) { own[at] |= static_cast<uint8_t>(from[i] & passing); });
}

void write_listed(const supernodal_structure &s, const program_update &u, const uint8_t *from, int32_t *word)
{
    const listed_counts c = count_listed(u, from);
    if (listed_words(u, c) == program_large_words) return write_large(u, word);
    const int64_t first = s.xsuper[u.source - 1], target_columns = supernode_columns(s, u.target);
    word[program_width] = static_cast<int32_t>(u.width);
    word[program_rows] = static_cast<int32_t>(c.rows + c.columns);
    word[program_counts] = pack_counts(c);
    word[program_lower] = static_cast<int32_t>(s.xlnz[first - 1] - 1 + u.row);
    word[program_upper] = static_cast<int32_t>(s.xunz[first - 1] - 1 + u.row - u.width);
    word[program_ld] = static_cast<int32_t>(u.row + u.q);
    int32_t *row = word + program_places, *column = row + c.rows;
    for_each_place(s, u, [&](int64_t i, int64_t at) {
        const int64_t beyond = at < target_columns ? at : at - target_columns;
        if ((from[i] & reaches_lower) != 0) *row++ = pack_place(i, at);
        if ((from[i] & reaches_upper) != 0) *column++ = pack_place(i, beyond);
    });
}

/* ---- both ---- */

/* Bytes of the row lists at the end of a program, in words. */
int64_t reached_words(const supernodal_structure &s)
{
    return (s.xlindx[s.supernodes] - 1 + 3) / 4;
}

/* Words of each target; for LU, what its sources let it hold is complete when a supernode's own updates are counted. */
void count_words(const supernodal_structure &s, factor_kind kind, uint8_t *reached, int64_t *words)
{
    for (int64_t target = 1; target <= s.supernodes; ++target) words[target - 1] = 0;
    for_each_update(s, [&](const program_update &u) {
        if (kind != factor_kind::lu) {
            words[u.target - 1] += update_words(kind, u);
            return;
        }
        const uint8_t *const from = reached_by(s, u, reached);
        const listed_counts count = count_listed(u, from);
        words[u.target - 1] += listed_words(u, count);
        pass_on(s, u, count, from, reached);
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

} // namespace

int64_t update_program_words(int64_t matrix_type, const supernodal_structure *structure)
{
    const supernodal_structure &s = *structure;
    const int64_t entries = s.nnz_l + s.nnz_u;
    factor_kind kind = factor_kind::lu;
    if (!find_kind(matrix_type, &kind) || (kind == factor_kind::lu && s.neqns > program_most_places)) return 0;
    if (entries > INT32_MAX / words_per_entry || s.neqns > columns_on_average * s.supernodes || much_arithmetic(s)) return 0;
    int64_t words = 1 + s.supernodes;
    for_each_update(s, [&](const program_update &u) {
        if (kind != factor_kind::lu)
            words += update_words(kind, u);
        else
            words += u.q <= program_most_rows ? program_places + 2 * u.q : int64_t{program_large_words};
    });
    if (words > words_per_entry * entries + few_words) return 0;
    return kind == factor_kind::lu ? words + reached_words(s) : words;
}

void build_update_program(int64_t matrix_type, const supernodal_structure *structure, const position_map *map, int64_t words,
                          int64_t *scratch, int32_t *program)
{
    const supernodal_structure &s = *structure;
    factor_kind kind = factor_kind::lu;
    if (!find_kind(matrix_type, &kind)) return;
    int64_t *const next = scratch; /* words of a target, then where its next update goes */
    auto *const reached = reinterpret_cast<uint8_t *>(program + words - reached_words(s)); /* LU */
    if (kind == factor_kind::lu) mark_given(s, *map, reached);
    count_words(s, kind, reached, next);
    program[0] = static_cast<int32_t>(kind);
    int64_t at = 1;
    for (int64_t target = 1; target <= s.supernodes; ++target) {
        const int64_t own_words = next[target - 1];
        program[at] = static_cast<int32_t>(own_words);
        next[target - 1] = at + 1;
        at += 1 + own_words;
    }
    for_each_update(s, [&](const program_update &u) {
        int32_t *const word = program + next[u.target - 1];
        if (kind != factor_kind::lu) {
            next[u.target - 1] += update_words(kind, u);
            write_update(s, kind, u, word);
            return;
        }
        const uint8_t *const from = reached_by(s, u, reached);
        const int64_t own_words = listed_words(u, count_listed(u, from));
        next[u.target - 1] += own_words;
        if (own_words > 0) write_listed(s, u, from, word);
    });
}
