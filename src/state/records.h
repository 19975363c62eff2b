/* The records behind a handle: plain structs, no behaviour. All words are signed 64-bit unless said otherwise; all index arrays hold
   1-based values in arrays that C indexes from 0 (element i of a table is table[i - 1]). */
#pragma once

#include <cstdint>

inline constexpr int64_t work_sentinel = -1111111; /* an unset per-supernode entry */
inline constexpr int64_t integer_limit_default = 214748364799999;
inline constexpr int64_t internal_version = 103911000;

/* Durations in seconds and the constants of the hybrid iteration. */
struct phase_times {
    double time_fulladj, time_reorder, time_symbfct, time_parlist, time_a_to_lu, time_numfct, time_solve, time_cgs, time_malloc, time_total;
    double cgs_bound_ten, cgs_unit, cgs_tolerance, cgs_tiny;
    double gflop_count; /* millions of real operations of one factorization */
    double time_stamp;  /* end of the last timed stretch */
};

/* Which timers hold a value worth printing. */
struct run_flags {
    int32_t fulladj, reorder, symbfct, parlist, a_to_lu, numfct, solve, cgs, malloc, total;
};

struct control_block {
    int64_t neqns, neqns_plus_one, offdiag_count, adjacency_size;
    int64_t element_words; /* 1 real, 2 complex */
    int64_t independent_blocks, blocks_scratch, overwrite_rhs, integer_limit, scale_state, message_flag, matrix_type, preprocessing, nproc,
        panel_columns, mode_one, cg_mode, symmetric_structure, sequential_analysis, perm_mode, mode_two, mode_three, scale_rows, supernodes,
        largest_supernode, nnz_l, nnz_u, lindx_size, update_size, growth_numerator, growth_denominator, cgs_divergence_bound,
        cgs_max_iterations, cgs_check_iteration, refactor_pending, work_words, ordering_work_size, subgraphs, max_fac_store, internal_code,
        pivoting, nnz_a, solve_step_code, iparam25_copy, domains, ordering_slack, perturbed_pivots, positive_pivots, negative_pivots,
        refinement_done, perturbation_exponent, matching, transpose_mode, scaling_on, two_level, diagonal_scaled, solve_step_saved,
        solve_step_level, peak_analysis_kb, current_analysis_kb, solve_extra_kb, callback_on, zero_based, single_precision,
        reproducible_units;
    int64_t delta;                                      /* minimum degree: eliminate up to minimum degree plus delta; stays 0 */
    int64_t l_entries;                                  /* entries of L with the diagonal, from the column counts */
    int64_t longest_column;                             /* longest column of L, then the largest difference of successive xlnz */
    int64_t column_count_bound;                         /* largest sum over one supernode's columns of matrix entries plus one each */
    int64_t domain_table_invalid;                       /* 1 when the table's last check failed: the numeric phase then uses one domain */
    int64_t parallel_list_size, task_count, task_bound; /* sizes of the parallel work lists */
    int64_t update_bound_a, update_bound_b;             /* lengths of the lnz and unz destination maps */
    int64_t hybrid_work_words;                          /* what memory_plan sized array 43 to for the hybrid iteration */
    int64_t failed_row;                                 /* 1-based row of the failing pivot, in the caller's numbering; 0 none */
    int64_t program_words;                              /* 32-bit words of array 50 */
    int64_t reserved[21];
    phase_times times; /* word 100 on */
    int64_t reserved_tail[325];
};
static_assert(sizeof(control_block) == 440 * sizeof(int64_t));

struct ooc_state {
    int64_t core_mode;     /* -1 undecided, 0 in core, 2 out of core */
    int64_t max_core_size; /* megabytes */
    int64_t files_open, msglvl_raw, factor_block_l, factor_block_u, factor_block_v;
    int64_t written_factor, read_factor, read_solve; /* transfer volumes in bytes */
    int64_t stage_error, word_bytes;
    int64_t percent_write_factor, percent_read_factor, percent_read_solve, percent_total;
    int64_t ooc_min_kb, incore_estimate, ooc_solve_kb, ido_current, refinement_request;
    struct ooc_tree *tree_link;
    int64_t element_bytes, core_mode_result, solve_window_first, solve_window_count;
    struct solver_state *state_link;
    int64_t max_swap_size; /* megabytes */
    int64_t reserved[101];
};
static_assert(sizeof(ooc_state) == 129 * sizeof(int64_t));

struct ooc_transfer_stats {
    double write_factor_seconds, read_factor_seconds, read_solve_seconds, total_seconds;
    double reserved[125];
};
static_assert(sizeof(ooc_transfer_stats) == 129 * sizeof(int64_t));

/* Header of one work array: count in 8-byte words. */
struct array_block {
    int64_t count;
    int64_t absent; /* words of count that this run does not use: they take no memory, and memory_current leaves them out */
    void *data;     /* null until the array exists */
};

/* What each numbered work array holds. n equations, S supernodes, P domains, F factorizations kept, T threads. */
enum array_number : int64_t {
    array_perm = 1,              /* [n] new position -> given column */
    array_invp = 2,              /* [n] given column -> new position */
    array_snode = 3,             /* [n] column -> supernode */
    array_xlnz = 4,              /* [n + 1] column -> its start in lnz */
    array_xunz = 5,              /* [n + 1] column -> its start in unz */
    array_domain_table = 6,      /* pairs (first, last): P leaf domains, all separators, P - 1 separators */
    array_parent = 7,            /* [n] elimination tree, 0 at a root */
    array_colcnt = 8,            /* [n] entries of each column of L, diagonal included */
    array_ordering_lists = 9,    /* lists of the minimum degree; then scratch of the symbolic step */
    array_ordering_lists_n = 10, /* the same advanced by n words */
    array_scratch_a = 12,        /* [n + 1] */
    array_separator_tail = 13,   /* [S] trailing rows of a supernode that fall at or past the first separator column */
    array_scratch_b = 14,        /* [n + 1] */
    array_xsuper = 15,           /* [S + 1] supernode -> first column */
    array_xadj = 16,             /* [n + 1] */
    array_adj = 17,              /* [adjacency_size] neighbours, diagonal excluded */
    array_lindx = 18,            /* row indices of each supernode, ascending, own columns first */
    array_xlindx = 19,           /* [S + 1] */
    array_sparent = 20,          /* [S] parent supernode, 0 at a root */
    array_work_order = 21,       /* [S] leaves-first order, leaves negative */
    array_update_count = 22,     /* [S] number of distinct supernodes that a supernode updates */
    array_sentinel_a = 23,       /* [S] */
    array_sentinel_b = 24,       /* [S] */
    array_map_src = 25,          /* position map: index in a, the lnz part first, then the unz part */
    array_map_col = 26,          /* position map: index of the other scale factor (only with scaling_on) */
    array_map_start_l = 27,      /* [n + 1] */
    array_map_start_u = 28,      /* [n + 1], unsymmetric */
    array_map_dest_l = 29,       /* destination in lnz */
    array_map_dest_u = 30,       /* destination in unz */
    array_pivots = 31,           /* [(n + 1) F] pivot records, one slice of n words per matrix number */
    array_list_count = 32,       /* [S + 1] single level: start of each target's segment of the ready list */
    array_list_start = 33,       /* starts of the update lists (two-level) or of the target lists (single-level) */
    array_thread_rows = 34,      /* S + (2T + 1) n: relative index maps and row scratch of the threads */
    array_list_source = 35,      /* entries of the lists: supernode */
    array_list_rows = 36,        /* entries of the lists: remaining rows */
    array_ready_source = 37,     /* single level: ready list, source supernode */
    array_ready_rows = 38,       /* single level: ready list, remaining rows */
    array_status = 39,           /* [S] two-level: 0 free, -1 claimed, 1 finished */
    array_cursor = 40,           /* two-level: cursor per list; single level: [S + 2] number of tasks, their starts */
    array_ordering_work = 41,
    array_update_buffer = 42,  /* per thread update buffers of the factorization and scratch of the solve */
    array_solve_work = 43,     /* refinement and hybrid iteration */
    array_matching_order = 44, /* [n] row order of the matching (11, 13), or the ordering of the compressed pairs (-4, -2, 6) */
    array_scale = 45,          /* [2 n] doubles: row scale factors, then column scale factors, by given row and column */
    array_row_order = 46,      /* [n F] the row order a factorization was made with */
    array_lnz = 47,
    array_unz = 48,
    array_ooc_tree = 49,
    array_program = 50, /* update program of the factorization, 32-bit words; only where supernodes are narrow */
    array_third = 58
};
inline constexpr int64_t work_array_headers = 47;

struct input_copies {
    int64_t *ia, *ja;
    void *a;
    int64_t *diagonal_list; /* count, then 1-based rows whose stored entries lack a leading diagonal */
    int64_t *perm;
};
static_assert(sizeof(input_copies) == 40);

/* One stored factorization: whether it may be solved with, and what a solve must know of its making. */
struct factor_record {
    int64_t valid;       /* 1 after a factorization that succeeded */
    int64_t matrix_type; /* 1 and 3 appear as 11 and 13 */
    int64_t pivoting;
    int64_t perturbed_pivots;
};

/* Everything a handle holds. */
struct solver_state {
    array_block *array[64];                                              /* by array_number; null where no such array exists */
    array_block **factor_table_l, **factor_table_u, **factor_table_perm; /* [max_fac_store] */
    array_block *factor_current_l, *factor_current_u, *factor_current_perm;
    struct ooc_tree *tree;
    control_block *control;
    struct ooc_state *ooc;
    ooc_transfer_stats *transfer;
    char *ooc_file_name; /* 1,025 bytes, first 1,024 blanks */
    int64_t ooc_prepared;
    int64_t memory_current, memory_peak, memory_count_only, memory_error_stage, memory_error_size; /* bytes */
    int64_t max_fac_store;
    int64_t ordering_slack, scaling_on, neqns, adjacency_size, matrix_type, pivoting, preprocessing, nproc, two_level, reproducible_units,
        element_words, symmetric_structure, sequential_analysis, perm_mode, ordering_lists_size, ordering_work_size;
    int64_t lindx_size, supernodes, domains, nnz_l, nnz_u, factor_block_l, factor_block_u, factor_block_v, column_count_bound, nnz_a,
        core_mode, parallel_list_size, update_bound_a, update_bound_b, task_count, task_bound, ooc_buffer_l, ooc_buffer_u, ooc_buffer_v,
        solve_work_a, solve_work_b, nb, refinement_steps;
    array_block **scale_table_row, **scale_table_col; /* [max_fac_store] diagonal store of each factorization */
    array_block *scale_current_row, *scale_current_col;
    factor_record *factor_table;                     /* [max_fac_store] what each stored factorization was made with */
    void *table_block;                               /* owns the tables above and their headers */
    int64_t table_capacity;                          /* factorizations the tables have room for, >= max_fac_store */
    int64_t analysed;                                /* 1 from the end of an analysis to the start of the next */
    int64_t map_length_l, map_length_u;              /* lengths of the position map */
    int64_t ordering_lists_used, ordering_work_used; /* words of the planned sizes that this run's threads use */
};
