/* Private to this room: the record behind ooc_state.tree_link.

   The factors of one matrix number lie in two files, lnz and unz. A side is cut into pages, runs of successive supernodes whose blocks
   follow each other as they would in core, and a page is what is read, written and held. Where pages come and go, they begin at whole
   units of direct transfers, in the file and in the window; where the window holds everything, they lie as they would in core. The
   resident pages of a side lie in its window, in one list by address.

   Whole pages are written, and pages that will be used soon are read, in the background. Whoever needs such a page or a place waits for
   the end of the transfer.

   No thread can wait for ever for a place. A thread holds one target a side, or one thread holds as many as are admitted while all others
   hold nothing; sources are held only for the length of one update, and while a thread holds one on both sides it takes further ones only
   if they are in core or on their way; the lower side is asked for before the upper one. Targets are only pinned where, beside all pinned
   targets, the windows keep room for one more target of each thread that has none and for one source, each as large as the largest block.
   So once the sources of other threads are given back there is a place. */
#pragma once

#include <omp.h>

#include "ooc/ooc.h"
#include "platform/platform.h"

inline constexpr int64_t ooc_error_open = -10, ooc_error_data = -11;

enum class page_state : int64_t { absent, moving, resident }; /* moving: not to be used, a transfer is under way */

struct ooc_page {
    int64_t first, last;   /* supernodes */
    int64_t offset, bytes; /* in the file */
    int64_t length;        /* with the rest of the last unit */
    int64_t core_offset;   /* where the first block would lie in core, bytes */
    int64_t place;         /* in the window, bytes; while not absent */
    int64_t before, after; /* neighbours in the window by address, as page indices; -1 none */
    int64_t stamp;         /* of the last use */
    int64_t pins, target_pins;
    int64_t next_target; /* of the pages with target pins, by address; -1 none */
    int64_t unmade;      /* blocks that this factorization has not made yet */
    int64_t transfer;    /* in the background, its index + 1; 0: none. A resident page is being written, a moving one is on its way in */
    page_state state;
    bool stored, dirty; /* in the file; the window holds what the file does not */
    bool expected;      /* read ahead for a batch and not yet used */
};

struct ooc_side {
    ooc_page *pages;
    int64_t page_count;
    int64_t *page_of;       /* [supernodes] page index; borrowed from array 49 */
    int64_t total, largest; /* bytes of all pages, and what the largest takes */
    char *base;             /* the window, borrowed */
    int64_t bytes;
    int64_t head;        /* first page of the window, -1 when it is empty */
    int64_t target_head; /* first one with target pins, -1 */
    bool natural;        /* the window holds everything: each page at its offset */
};

/* Files of one matrix number. Disks work on several transfers at once; each way to a file makes one at a time. */
inline constexpr int64_t ooc_more_ways = 1;
struct ooc_file_set {
    bool exists, open, linked;             /* linked: their names exist */
    int64_t serial;                        /* part of the names */
    platform_file file[2];                 /* lnz, unz */
    platform_file other[2][ooc_more_ways]; /* further ways to them for transfers in the background, or -1 */
    uint64_t *sums;                        /* two words a page, lower pages first: what was written */
};

inline constexpr int64_t ooc_transfer_limit = 128;
struct ooc_transfer {
    platform_transfer record;
    ooc_side *side;
    ooc_page *page; /* the first one; null: free */
    int64_t pages;  /* that follow each other, in the file and in the window */
    int64_t number; /* in order of their beginnings */
    bool claimed;   /* somebody waits for it */
};

struct ooc_tree {
    block_pager pager;
    omp_lock_t lock; /* guards everything below, not the contents of pages */
    ooc_state *state;
    supernodal_structure structure;
    int64_t element_bytes, sides;
    int64_t threads; /* that the windows have room for */
    ooc_side side[2];
    ooc_file_set *sets;
    int64_t set_count;
    int64_t index_serial; /* part of the names of the index arrays' files; 0: there are none */
    ooc_file_set *current;
    ooc_purpose purpose;
    int64_t warm_number; /* matrix number whose pages the windows hold, 0 none */
    int64_t clock;
    int64_t mark; /* pages used since then stay while others are read ahead */
    ooc_transfer transfer[ooc_transfer_limit];
    int64_t transfer_count;
    int32_t fault, fault_message;
    double read_seconds, write_seconds;
    int64_t read_bytes, write_bytes;
    char path[1001]; /* prefix of the file names */
};

/* ---- pages (ooc_pages.cpp) ---- */
struct ooc_side_sizes {
    int64_t total, largest; /* bytes of the side, and of its largest block, which no page exceeds */
};
ooc_side_sizes ooc_measure_side(const supernodal_structure *s, factor_side side, int64_t element_bytes);
/* Bytes rounded up to whole units of direct transfers. */
int64_t ooc_whole_units(int64_t bytes);
int64_t ooc_block_bytes(const supernodal_structure *s, factor_side side, int64_t supernode, int64_t element_bytes);
int64_t ooc_block_offset(const supernodal_structure *s, factor_side side, int64_t supernode, int64_t element_bytes);
/* Cut a side into pages of `whole` units or of what they hold. pages null: only count. Returns the number of pages. */
int64_t ooc_cut_pages(const supernodal_structure *s, factor_side side, int64_t element_bytes, int64_t page_bytes, bool whole,
                      ooc_page *pages, int64_t *page_of);
/* No page is larger than the largest block, and a window holds many. */
int64_t ooc_page_bytes(int64_t largest_block, int64_t window);
/* All pages absent and unstored, all blocks to be made. */
void ooc_reset_side(ooc_tree *tree, factor_side side, bool stored);

/* ---- places (ooc_place.cpp); all under the lock ---- */
/* What a page is wanted for. ahead: soon; it may only take the place of pages that are in the file and were not used since the mark. */
enum class ooc_wish { target, source, ahead };
/* Place for length bytes from the beginning of a page on, or -1 when there is none at the moment. The pages that overlap it, none of them
   pinned, are *victim .. until (exclusive) of the list by address; equal when there is none. */
int64_t ooc_find_place(const ooc_tree *tree, const ooc_side *side, const ooc_page *page, int64_t length, ooc_wish wish, int64_t *victim,
                       int64_t *until);
/* Thirteen sixteenths of a window are for targets, the rest for sources. Asked while no source is held. */
bool ooc_admits_target(const ooc_tree *tree, const ooc_side *side, const ooc_page *page);
bool ooc_may_pin_target(const ooc_tree *tree, const ooc_side *side, const ooc_page *page);
/* Count a pin of a target, or take it back. */
void ooc_pin_target(ooc_side *side, ooc_page *page);
void ooc_unpin_target(ooc_side *side, ooc_page *page);
void ooc_list_insert(ooc_side *side, ooc_page *page);
void ooc_list_remove(ooc_side *side, ooc_page *page);

/* ---- transfers (ooc_transfer.cpp); all called and left under the lock, which is open meanwhile unless begin_read ---- */
void ooc_pause(ooc_tree *tree);
/* Read an absent page into its place. */
void ooc_read_page(ooc_tree *tree, ooc_side *side, ooc_page *page);
/* The same in the background for pages that follow each other, false when the system does not: nothing has begun. */
bool ooc_begin_read(ooc_tree *tree, ooc_side *side, ooc_page *page, int64_t pages, int64_t length);
/* Write a page that nobody changes meanwhile, in the background where that is possible. */
void ooc_write_page(ooc_tree *tree, ooc_side *side, ooc_page *page);
/* Wait a while for the end of the page's transfer. */
void ooc_end_transfer(ooc_tree *tree, const ooc_page *page);
/* Note which writes have ended; the lock stays closed. */
void ooc_end_written(ooc_tree *tree);
/* Wait for the oldest transfer that nobody waits for; false when there is none. */
bool ooc_end_oldest(ooc_tree *tree);

/* ---- pager (ooc_pager.cpp) ---- */
void ooc_bind_pager(ooc_tree *tree);
/* Write the pages that changed, unless a transfer has failed. */
void ooc_flush(ooc_tree *tree);
/* Wait for all transfers. */
void ooc_settle(ooc_tree *tree);
void ooc_record_fault(ooc_tree *tree, int32_t message, int32_t error);

/* ---- files (ooc_files.cpp); return the system's error number, 0 when all went well ---- */
/* Make the files of a set new and open them. Where they are not to be kept their names go at once; where they are, the first set writes
   the files of the index arrays as well. */
int32_t ooc_create_files(ooc_tree *tree, const ooc_request *request, ooc_file_set *set);
/* Kept files, by their names, for a solve; *message names the file that failed. */
int32_t ooc_reopen_files(const ooc_tree *tree, const ooc_request *request, ooc_file_set *set, int32_t *message);
/* True when the files are as long as they were written. */
bool ooc_files_complete(const ooc_tree *tree, const ooc_file_set *set);
int32_t ooc_close_files(const ooc_tree *tree, ooc_file_set *set, int32_t *message);
void ooc_remove_files(const ooc_tree *tree, ooc_file_set *set, bool keep);
void ooc_remove_index_files(ooc_tree *tree);
