/* Which supernodes are held together while factors are in files. */
#pragma once

#include "state/structure.h"

inline constexpr int64_t supernode_begins_batch = 2;

/* Entries of the blocks of a supernode. */
inline int64_t block_entries(const supernodal_structure &s, int64_t number, bool two_sides)
{
    const int64_t rows = supernode_rows(s, number), columns = supernode_columns(s, number);
    return (two_sides ? 2 * rows - columns : rows) * columns;
}

/* Choose where batches begin, so that as few entries as possible are read for all of them.
   in     room          entries that the members of a batch may have
          most_members  of a batch
   inout  status        [supernodes] above 0: above the subtrees; where a batch is to begin it becomes supernode_begins_batch, else 1
   work   work          [words]; where it is too short for a table of the sources, status stays
   O(rows of all supernodes + members of a batch, squared, for each supernode above the subtrees). */
void plan_batches(const supernodal_structure &s, bool two_sides, int64_t room, int64_t most_members, int64_t *status, int64_t *work,
                  int64_t words);
