/* The updates of a factorization with narrow supernodes, written down once for an analysis, so that a factorization looks nothing up: where
   most updates are a few products, finding their places takes longer than the products.

   A program is a list of 32-bit words: the kind of the factors, since the updates are written down differently, then the supernodes in
   order.
   Small Cholesky factors (program_of_pushes is added to the kind): as kernel_factor_pushing reads it, where all products of a source go.
   LU, whose products are listed: a target has
       lower, upper   products that change its block of lnz and that of unz
       large          updates of too many products
       product[lower + upper]: to, from, factor: places from 0, of `to` and `from` on the changed side, of `factor` on the other one
       update[large]: rows, source
   and at the end stands a byte for each word of the row lists, which says whether that row of L and that column of U can hold anything.
   Else a target has
       words          of all its updates, which follow
       an update, sources ascending:
         width        columns of the source; 0 for an update that is not small, of which only the next two words are there
         rows         q: rows of the source from the target's first one on
         source       only with width 0
         columns      k: the rows among them that are columns of the target
         lower        place in lnz, from 0, of the first of the rows
         ld           leading dimension of the source's block of lnz
         place[q]     offset of each row in the row list of the target */
#pragma once

#include "factor/factor_run.h"

enum program_word : int64_t {
    program_width,
    program_rows,
    program_columns,
    program_lower,
    program_ld,
    program_places,
    program_source = program_columns,
    program_large_words = 3
};

enum product_target_word : int64_t { products_lower, products_upper, products_large, product_target_words };
inline constexpr int64_t product_words = 3, large_update_words = 2, pushing_head_words = 2;
inline constexpr int32_t program_void = -1, program_of_pushes = 256; /* void, in place of the kind: did not fit */

/* Made for this kind? The sign of the type may change between two factorizations. */
inline bool program_fits(const int32_t *program, factor_kind kind)
{
    return program != nullptr && (program[0] & ~program_of_pushes) == static_cast<int32_t>(kind);
}

/* One update: the last q rows of the source's list, the first k of them columns of the target. */
struct program_update {
    int64_t source, target, q, k, width;
    const int64_t *list; /* [q] */
};

/* Call visit for each update by a source, targets ascending; and for those of all sources, which ascend. */
template <typename visit_type>
inline void for_each_update_of(const supernodal_structure &s, int64_t source, const visit_type &visit)
{
    const int64_t rows = supernode_rows(s, source), width = supernode_columns(s, source), *list = supernode_row_list(s, source);
    for (int64_t i = width, k = 0; i < rows; i += k) {
        const int64_t target = s.snode[list[i] - 1], end_column = s.xsuper[target];
        for (k = 1; i + k < rows && list[i + k] < end_column;) ++k;
        visit(program_update{source, target, rows - i, k, width, list + i});
    }
}
template <typename visit_type>
inline void for_each_update(const supernodal_structure &s, const visit_type &visit)
{
    for (int64_t source = 1; source <= s.supernodes; ++source) for_each_update_of(s, source, visit);
}

/* place(i, offset) for each row of an update: its offset in the row list of the target. Both lists ascend. */
template <typename place_type>
inline void for_each_place(const supernodal_structure &s, const program_update &u, const place_type &place)
{
    const int64_t *row = supernode_row_list(s, u.target);
    int64_t at = 0;
    for (int64_t i = 0; i < u.q; ++i) {
        while (row[at] < u.list[i]) ++at;
        place(i, at);
    }
}

/* The programs of LU and of small Cholesky factors: words that they may need, 0 when there is no room or when it would not pay; and the
   programs. */
int64_t product_program_words(const supernodal_structure &s, int64_t most_words);
void build_product_program(const update_program_input &in, int32_t *program);
int64_t pushing_program_words(const supernodal_structure &s, int64_t most_words);
void build_pushing_program(const supernodal_structure &s, int32_t *program);
