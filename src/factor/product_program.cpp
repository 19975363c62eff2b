#include "factor/narrow_update.h"
#include "factor/update_program.h"

/* The update program of LU, which leaves out what is zero in every factorization. The storage is that of the symmetrised
   pattern, and on circuits half of it stays zero: a row of L or a column of U of a source takes part when the given entries, or the updates
   of the source by others, can reach it. The exchanges inside a diagonal block mix no more than the rows and columns of one supernode, so
   that a supernode's rows and columns are told apart, but not the entries of a row. */

namespace
{

enum reach : uint8_t { reaches_lower = 1, reaches_upper = 2 };

/* Products of a listed update: beyond, the dense way is faster. When the products do not fit, fewer updates are listed. */
constexpr int64_t listed_products = 2 * tiny_products, fewer_products = 4;

/* Bytes of the row lists at the end of a program, in words. */
int64_t reached_words(const supernodal_structure &s)
{
    return (s.xlindx[s.supernodes] - 1 + 3) / 4;
}

/* Rows of L and columns of U that take part, and how many of them are columns and rows of the target. */
struct reached_counts {
    int64_t rows, own_rows, columns, own_columns;
};

const uint8_t *reached_by(const supernodal_structure &s, const program_update &u, const uint8_t *reached)
{
    return reached + (s.xlindx[u.source] - 1 - u.q);
}

reached_counts count_reached(const program_update &u, const uint8_t *from)
{
    reached_counts count = {};
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

/* Mark what the updates reach. A source is complete when its turn comes: all its own sources stand before it. */
void mark_filled(const supernodal_structure &s, uint8_t *reached)
{
    for_each_update(s, [&](const program_update &u) {
        const uint8_t *const from = reached_by(s, u, reached);
        const reached_counts count = count_reached(u, from);
        const int passing = (count.own_columns > 0 ? reaches_lower : 0) | (count.own_rows > 0 ? reaches_upper : 0);
        uint8_t *const own = reached + (s.xlindx[u.target - 1] - 1);
        if (passing != 0) for_each_place(s, u, [=](int64_t i, int64_t at) { own[at] |= static_cast<uint8_t>(from[i] & passing); });
    });
}

/* Products of an update on either side. */
struct side_products {
    int64_t lower, upper;
};
side_products products_of(const program_update &u, const reached_counts &c)
{
    return {c.own_columns * c.rows * u.width, c.own_rows * (c.columns - c.own_columns) * u.width};
}

/* What a target has of each part, or where the next one of it goes: products are counted from the first word of the program. */
struct target_parts {
    int64_t *lower, *upper, *large;
};

/* Fill the parts with counts for updates of up to `most` products, and return the words of the program. */
int64_t count_parts(const supernodal_structure &s, int64_t most, const uint8_t *reached, const target_parts &count)
{
    for (int64_t t = 0; t < s.supernodes; ++t) count.lower[t] = count.upper[t] = count.large[t] = 0;
    int64_t words = 1 + s.supernodes * product_target_words;
    for_each_update(s, [&](const program_update &u) {
        const side_products products = products_of(u, count_reached(u, reached_by(s, u, reached)));
        const int64_t all = products.lower + products.upper;
        if (all > most) {
            ++count.large[u.target - 1];
            words += large_update_words;
            return;
        }
        count.lower[u.target - 1] += products.lower;
        count.upper[u.target - 1] += products.upper;
        words += product_words * all;
    });
    return words;
}

/* Write the heads of the targets, and turn the counts into words where the parts begin. */
void place_parts(const supernodal_structure &s, const target_parts &next, int32_t *program)
{
    int64_t at = 1;
    for (int64_t t = 0; t < s.supernodes; ++t) {
        const int64_t lower = next.lower[t], upper = next.upper[t], large = next.large[t];
        program[at + products_lower] = static_cast<int32_t>(lower);
        program[at + products_upper] = static_cast<int32_t>(upper);
        program[at + products_large] = static_cast<int32_t>(large);
        next.lower[t] = at + product_target_words;
        next.upper[t] = next.lower[t] + product_words * lower;
        next.large[t] = next.upper[t] + product_words * upper;
        at = next.large[t] + large_update_words * large;
    }
}

/* Rows of an update that take part on one side: their numbers among the q rows, and their places in the target. */
struct listed_rows {
    int64_t count, own; /* the first `own` are among the k */
    int64_t number[listed_products], place[listed_products];
};
void add_row(int64_t number, int64_t place, bool own, listed_rows *list)
{
    list->number[list->count] = number;
    list->place[list->count++] = place;
    list->own += own ? 1 : 0;
}

/* Those that are in a product, which are no more than the products. */
void list_rows(const supernodal_structure &s, const program_update &u, const uint8_t *from, listed_rows *rows, listed_rows *columns)
{
    const reached_counts count = count_reached(u, from);
    const side_products products = products_of(u, count);
    rows->count = rows->own = columns->count = columns->own = 0;
    for_each_place(s, u, [&](int64_t i, int64_t at) {
        const bool own = i < u.k;
        if ((from[i] & reaches_lower) != 0 && (products.lower > 0 || (products.upper > 0 && own))) add_row(i, at, own, rows);
        if ((from[i] & reaches_upper) != 0 && (own ? products.lower > 0 : products.upper > 0)) add_row(i, at, own, columns);
    });
}

/* Products of the rows `along` from begin on with the own rows of across. panel, factors:
   places of the first of the q rows in a column of the source, on the changed side and on the other one; target: of the changed block,
   whose columns are ld long. */
int32_t *write_side(const listed_rows &along, int64_t begin, const listed_rows &across, int64_t panel, int64_t factors, int64_t target,
                    int64_t ld, int32_t *word)
{
    for (int64_t j = 0; j < across.own; ++j)
        for (int64_t i = begin; i < along.count; ++i) {
            *word++ = static_cast<int32_t>(target + across.place[j] * ld + along.place[i]);
            *word++ = static_cast<int32_t>(panel + along.number[i]);
            *word++ = static_cast<int32_t>(factors + across.number[j]);
        }
    return word;
}

/* Returns how many words were written on either side. Columns of the source go outside: the products of an entry do not follow each other,
   and none waits for the one before. */
side_products write_products(const supernodal_structure &s, const program_update &u, const uint8_t *from, int32_t *lower, int32_t *upper)
{
    listed_rows rows, columns;
    list_rows(s, u, from, &rows, &columns);
    const int64_t first = s.xsuper[u.source - 1], target_first = s.xsuper[u.target - 1];
    const int64_t ld = supernode_rows(s, u.source), above = ld - u.q;
    const int64_t target_ld = supernode_rows(s, u.target), target_columns = supernode_columns(s, u.target);
    const int64_t target_lower = s.xlnz[target_first - 1] - 1, target_upper = s.xunz[target_first - 1] - 1;
    int32_t *lower_end = lower, *upper_end = upper;
    for (int64_t c = 0; c < u.width; ++c) {
        const int64_t l = s.xlnz[first - 1 + c] - 1 + above;
        const int64_t v = s.xunz[first - 1 + c] - 1 + above - u.width;
        lower_end = write_side(rows, 0, columns, l, v, target_lower, target_ld, lower_end);
        upper_end = write_side(columns, columns.own, rows, v, l, target_upper - target_columns, target_ld - target_columns, upper_end);
    }
    return {lower_end - lower, upper_end - upper};
}

} // namespace

int64_t product_program_words(const supernodal_structure &s, int64_t most_words)
{
    int64_t words = 1 + s.supernodes * product_target_words, least = words;
    for_each_update(s, [&](const program_update &u) {
        const side_products products = products_of(u, {u.q, u.k, u.q, u.k});
        const int64_t all = products.lower + products.upper;
        words += product_words * (all <= listed_products ? all : listed_products);
        least += large_update_words;
    });
    if (least > most_words) return 0;
    return (words < most_words ? words : most_words) + reached_words(s);
}

void build_product_program(const update_program_input &in, int32_t *program)
{
    const supernodal_structure &s = *in.structure;
    const int64_t room = in.words - reached_words(s);
    auto *const reached = reinterpret_cast<uint8_t *>(program + room);
    const target_parts parts = {in.scratch_a, in.scratch_b, in.scratch_c};
    mark_given(s, *in.map, reached);
    mark_filled(s, reached);
    int64_t most = listed_products;
    while (most > 0 && count_parts(s, most, reached, parts) > room) most /= fewer_products;
    program[0] = program_void;
    if (most == 0 && count_parts(s, most, reached, parts) > room) return;
    program[0] = static_cast<int32_t>(factor_kind::lu);
    place_parts(s, parts, program);
    for_each_update(s, [&](const program_update &u) {
        const int64_t t = u.target - 1;
        const uint8_t *const from = reached_by(s, u, reached);
        const side_products products = products_of(u, count_reached(u, from));
        if (products.lower + products.upper > most) {
            program[parts.large[t]] = static_cast<int32_t>(u.q);
            program[parts.large[t] + 1] = static_cast<int32_t>(u.source);
            parts.large[t] += large_update_words;
            return;
        }
        const side_products words = write_products(s, u, from, program + parts.lower[t], program + parts.upper[t]);
        parts.lower[t] += words.lower;
        parts.upper[t] += words.upper;
    });
}
