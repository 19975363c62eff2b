/* The updates of a factorization with narrow supernodes, written down once for an analysis, so that a factorization looks nothing up: where
   most updates are a few products, finding their places takes longer than the products.

   The program is a list of 32-bit words: the kind of the factors, since it says which updates are small, then the targets. A target has
       words          of all its updates, which follow
       an update, sources ascending:
         width        columns of the source; 0 for an update that is not small, of which only the next two words are there
         rows         q: rows of the source from the target's first one on
         source       only with width 0
         columns      k: the rows among them that are columns of the target
         lower        place in lnz, from 0, of the first of the rows
         upper        place in unz of the same row
         ld           leading dimension of the source's block of lnz
         place[q]     offset of each row in the row list of the target

   LU leaves out what is zero in every factorization. The storage is that of the symmetrised pattern; a row of L or a column of U of a
   source takes part when the given entries, or the updates of the source by others, can reach it. The exchanges inside a diagonal block mix
   no more than the rows and columns of one supernode, so that a supernode's rows and columns are told apart, but not the entries of a row.
   Its small updates have, from the second word on,
         rows         words of both lists
         counts       l + 256 lk + 65536 u + 16777216 uk: rows of L and columns of U that take part, and how many of them are columns and
                      rows of the target
         lower, upper, ld as above
         row[l], column[u]: the number from 0 among the q rows, plus 256 times the place; the place is that in the target's row list, of
                      the columns behind the first uk counted from the end of its diagonal block
   and an update without a product is not there. At the end of the program stands a byte for each word of the row lists, which says whether
   that row of L and that column of U can hold anything. */
#pragma once

#include "factor/factor_run.h"

enum program_word : int64_t {
    program_width,
    program_rows,
    program_columns,
    program_lower,
    program_upper,
    program_ld,
    program_places,
    program_source = program_columns,
    program_counts = program_columns,
    program_large_words = 3
};
/* A listed update: most rows, whose numbers are bytes, and most rows of a target. */
inline constexpr int64_t program_most_rows = 255, program_most_places = int64_t{1} << 23;
struct listed_counts {
    int64_t rows, own_rows, columns, own_columns;
};
inline int32_t pack_counts(const listed_counts &c)
{
    return static_cast<int32_t>(static_cast<uint32_t>(c.rows | c.own_rows << 8 | c.columns << 16 | c.own_columns << 24));
}
inline listed_counts unpack_counts(int32_t word)
{
    const auto packed = static_cast<uint32_t>(word);
    return {packed & 255, packed >> 8 & 255, packed >> 16 & 255, packed >> 24};
}
inline int32_t pack_place(int64_t number, int64_t place)
{
    return static_cast<int32_t>(number | place << 8);
}

/* Made for this kind? The sign of the type may change between two factorizations. */
inline bool program_fits(const int32_t *program, factor_kind kind)
{
    return program != nullptr && program[0] == static_cast<int32_t>(kind);
}
