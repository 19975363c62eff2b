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
         place[q]     offset of each row in the row list of the target */
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
    program_large_words = 3
};

/* Made for this kind? The sign of the type may change between two factorizations. */
inline bool program_fits(const int32_t *program, factor_kind kind)
{
    return program != nullptr && program[0] == static_cast<int32_t>(kind);
}
