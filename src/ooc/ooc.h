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

/* Files by number. lnz and unz hold the factors; the others, written only where files are kept, the index arrays that make a kept set
   complete: the row lists, for each side of the position map its source, destination and (with scaling) column tables, and the update
   lists. Symmetric factors have no file of the upper side. */
enum ooc_file_number : int64_t {
    ooc_file_lindx = 1,
    ooc_file_lnz = 2,
    ooc_file_unz = 3,
    ooc_file_map_src_l = 4,
    ooc_file_map_src_u = 5,
    ooc_file_map_dest_l = 6,
    ooc_file_map_dest_u = 7,
    ooc_file_map_col_l = 8,
    ooc_file_map_col_u = 9,
    ooc_file_list_source = 10,
    ooc_file_list_rows = 11,
    ooc_file_count = 11
};
struct ooc_index_array {
    const int64_t *data; /* null: no such file */
    int64_t words;
};

/* What the file layer works on; all borrowed. state->tree_link is its own record, null before ooc_prepare. */
struct ooc_request {
    ooc_state *state;
    ooc_transfer_stats *stats;
    const char *path; /* prefix of the file names */
    const supernodal_structure *structure;
    int64_t matrix_number;
    int64_t symmetric; /* 1: no unz */
    int64_t element_bytes;
    int64_t threads; /* that want to hold blocks at once */
    int64_t message_flag;
    int64_t *tables;                       /* array 49: eleven groups of two tables of supernodes + 1 words and two of supernodes + 2 */
    int64_t window_entries[2];             /* lnz, unz: the windows that ooc_open will be given; read by ooc_prepare */
    ooc_index_array index[ooc_file_count]; /* by file number less 1 */
};
enum class ooc_purpose { factorize, solve };

/* Words of row indices, and entries of the page windows of lnz and unz, that fit in max_core_size beside core_bytes of other arrays. At
   least a target and a source on each side; no more than there is. */
void ooc_buffer_sizes(const ooc_request *request, int64_t core_bytes, int64_t *buffer_l, int64_t *buffer_u, int64_t *buffer_v);

/* Make the record behind tree_link, once for an analysis, and the files of request->matrix_number. Returns 0, -2 (memory), or -10 or -11,
   which is also in state->stage_error. */
int64_t ooc_prepare(const ooc_request *request);

/* Open the files of request->matrix_number (made new to factorize) and page through the given windows. Null after a failure, with
   state->stage_error -10, or -2 when memory ran out. The pager reports its own later failures as stage_error -11. */
const block_pager *ooc_open(const ooc_request *request, ooc_purpose purpose, void *window_l, int64_t entries_l, void *window_u,
                            int64_t entries_u);
/* How many threads may factor at once through the open windows, 1 .. request->threads. */
int64_t ooc_factor_threads(const ooc_request *request);
/* Write what is still to be written and close. Returns 0 or the stage_error. */
int64_t ooc_close(const ooc_request *request, ooc_purpose purpose);

/* Delete the files of one matrix number, or of all (0), unless they are to be kept; with 0 the record behind tree_link goes as well. */
void ooc_delete(ooc_state *state, int64_t matrix_number);
