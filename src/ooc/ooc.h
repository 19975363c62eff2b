/* Out-of-core: configuration and the file layer behind block_pager. */
#pragma once

#include <cstdint>

#include "state/factor_store.h"
#include "state/records.h"

/* Settings from the environment and the configuration file. Always returns 0. path: 1,000 bytes, a prefix of file names, terminated.
   state: max_core_size and max_swap_size in megabytes; files_open 1 deletes the files at release, 0 keeps them. msglvl above 0: tells what
   came from the environment. Read afresh at each call. */
int64_t ooc_configure(char *path, ooc_state *state, int64_t msglvl);

/* ---- factors in files ------------------------------------------------------------------------------------------------------------- */

/* What the file layer works on; all borrowed. state->tree_link is its own record, null before ooc_prepare. */
struct ooc_request {
    ooc_state *state;
    ooc_transfer_stats *stats;
    const char *path; /* prefix of the file names */
    const supernodal_structure *structure;
    int64_t matrix_number;
    int64_t symmetric; /* 1: no unz */
    int64_t element_bytes;
    int64_t threads; /* that may hold blocks at once */
    int64_t message_flag;
    int64_t *tables; /* array 49: eleven groups of two tables of supernodes + 1 words and two of supernodes + 2 */
    int64_t table_words;
};
enum class ooc_purpose { factorize, solve };

/* Words of row indices, and entries of the page windows of lnz and unz, that fit in max_core_size beside core_bytes of other arrays. At
   least one block for each thread and its source. */
void ooc_buffer_sizes(const ooc_request *request, int64_t core_bytes, int64_t *buffer_l, int64_t *buffer_u, int64_t *buffer_v);

/* Make the record behind tree_link, once for an analysis. Returns 0, -2 (memory), or -10, which is also in state->stage_error. */
int64_t ooc_prepare(const ooc_request *request);

/* Open the files of request->matrix_number (made new to factorize) and page through the given windows. Null after a failure, with
   state->stage_error -10, or -2 when memory ran out. The pager reports its own later failures as stage_error -11. */
const block_pager *ooc_open(const ooc_request *request, ooc_purpose purpose, void *window_l, int64_t entries_l, void *window_u,
                            int64_t entries_u);
/* Write what is still to be written and close. Returns 0 or the stage_error. */
int64_t ooc_close(const ooc_request *request, ooc_purpose purpose);

/* Delete the files of one matrix number, or of all (0), unless they are to be kept; with 0 the record behind tree_link goes as well. */
void ooc_delete(ooc_state *state, int64_t matrix_number);
