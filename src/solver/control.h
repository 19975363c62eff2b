/* Private to this room: one call of the solver as its steps see it. */
#pragma once

#include <cstdint>

#include "state/iparam.h"
#include "state/records.h"
#include "state/state.h"

/* ---- codes ------------------------------------------------------------------------------------------------------------------------ */

/* What ido may ask for. */
enum ido_value : int64_t {
    ido_query_limits = -3,
    ido_query_parameters = -2,
    ido_release_all = -1,
    ido_release_number = 0,
    ido_analyse = 11,
    ido_analyse_factor = 12,
    ido_analyse_factor_solve = 13,
    ido_factor = 22,
    ido_factor_solve = 23,
    ido_solve = 33,
    ido_solve_forward = 331,
    ido_solve_diagonal = 332,
    ido_solve_backward = 333,
    ido_solve_last = 334 /* maps to 33, and is then refused as out of bounds */
};
enum phase_digit : int64_t { phase_analysis = 1, phase_factorization = 2, phase_solve = 3 };

/* Public errors. */
enum public_error : int64_t {
    error_none = 0,
    error_input = -1,
    error_memory = -2,
    error_reordering = -3,
    error_factorization = -4,
    error_unclassified = -5,
    error_preordering = -6,
    error_diagonal = -7,
    error_overflow = -8,
    error_ooc_memory = -9,
    error_ooc_open = -10,
    error_ooc_data = -11
};

/* Internal codes: the detail behind a public error. Negative ones come from the rooms below. */
enum internal_code_value : int64_t {
    code_none = 0,
    code_ido = 1,
    code_max_fac_store = 2,
    code_matrix_number_above = 3,
    code_matrix_number_below = 4,
    code_matrix_type_changed = 5,
    code_neqns_changed = 6,
    code_neqns = 7,
    code_entry_count = 8,
    code_nb = 9,
    code_overwrite_rhs = 10,
    code_preprocessing = 11,
    code_thread_count = 12,
    code_nproc = 13,
    code_matrix_type = 15,
    code_empty_arrays = 16,
    code_invalid_sizes = 17,
    code_working_arrays = 18,
    code_perm = 19,
    code_wrong_step = 20,
    code_row_pointers = 21,
    code_column_range = 22,
    code_below_diagonal = 23,
    code_column_order = 24,
    code_matrix_last = 30,
    code_two_level_ooc = 31,
    code_sequential_ooc = 32,
    code_clean_number = 100,
    code_only_symbolic = 999,
    code_initialization = 1000,
    code_ido_below_minus_one = 10000,
    code_clean_impossible = 100000,

    code_memory = -2,
    code_hybrid = -3,
    code_refinement = -112,
    code_overflow = -182
};

/* Stages of memory_plan and of stage_controller. */
enum memory_stage : int64_t {
    memory_global_structure = -2,
    memory_matching = 1,
    memory_before_reordering = 2,
    memory_before_symbolic = 3,
    memory_before_parallel_data = 4,
    memory_after_reordering = 5,
    memory_ooc_tree = 6,
    memory_ooc_arrays = 7,
    memory_factors = 8,
    memory_numeric_work = 9,
    memory_refinement_work = 10
};
enum stage_value : int64_t { stage_ordering = 1, stage_symbolic = 2, stage_lists = 3, stage_ooc = 4, stage_numeric = 5 };

/* Slots of the caller's handle in use, counted from 0. */
enum handle_slot : int64_t { slot_call_count = 0, slot_state = 1, slot_copies = 3, slot_ooc_file = 63 };
inline constexpr int64_t call_count_shared_file = -100; /* the block of the file name stands already */
inline constexpr int64_t ooc_file_block_bytes = 1032;

enum core_mode_value : int64_t { core_undecided = -1, core_in = 0, core_out = 2 };
inline constexpr int64_t iparam_core_mode_forced = 22; /* out of core, and said so in iparam(57) from the start */
inline constexpr int64_t partial_stop_after_ordering = -10;

/* ---- the call --------------------------------------------------------------------------------------------------------------------- */

struct compressed_order; /* analysis/analysis.h */

struct solver_call {
    /* The caller's arguments: scalars by value, arrays as they came. */
    void **handle;
    int64_t max_fac_store, matrix_number, matrix_type, ido, neqns, nb, msglvl;
    const void *a;
    const int64_t *ia, *ja;
    int64_t *perm, *iparam;
    void *b, *x;

    int64_t real_bytes; /* 8 double, 4 single precision */

    /* Decoded by the driver. */
    int64_t ido_internal, first_digit, last_digit;
    bool analyses;          /* ido 11, 12 or 13 */
    int64_t ooc_seed;       /* start value of core_mode_result */
    int64_t element_words;  /* 1 real, 2 complex */
    int64_t diagonal_count; /* rows that lack a leading diagonal entry; -1 not looked at yet */
    int64_t stored_max_fac_store, stored_matrix_type, stored_neqns, stored_nb, stored_nnz; /* what the handle remembers */
    bool analysis_done;                                                                    /* this call's analysis went through */
    bool factored;                                                                         /* this call ran a factorization */
    bool refinement_planned;                                                               /* array 43 has its size for refinement */

    /* Behind the handle. */
    solver_state *state;
    control_block *control;
    ooc_state *ooc;
    input_copies *copies;

    /* The working input: 1-based, every diagonal entry in place where the type asks for it. */
    const int64_t *work_ia, *work_ja;
    const void *work_a;
    int64_t *work_perm;
    int64_t nnz;
    const compressed_order *pairs; /* of the matching while stage 1 runs; null without */

    run_flags flags;

    /* Outcome. */
    int64_t error, internal_code;
    int64_t memory_stage, memory_bytes; /* of a failed allocation */
    int64_t skip_exit;                  /* 1: leave without the exit sequence */
};

/* ---- entry (solver_entry.cpp, iparam_defaults.cpp, precision_select.cpp, diagonal_fast_path.cpp, partial_solve_ordering.cpp) ------- */

void iparam_defaults(int64_t *iparam, int64_t matrix_type);
bool precision_select(void *const *handle, int64_t ido, int64_t *iparam);

/* x = b / a for a matrix that holds its diagonal and nothing else. error 0; the 1-based number of a row whose ia difference is not 1; minus
   the number of a row with a zero value. */
template <typename value_t>
void diagonal_fast_path(int64_t n, const value_t *a, const int64_t *ia, int64_t nb, int64_t *iparam, value_t *b, value_t *x,
                        int64_t threads, bool solve, int64_t *error);

/* Order the rows that perm does not mark, and put the marked ones last. perm in: 1 marked, 0 free; out: a full ordering in the caller's
   index base. Leaves iparam(5) 1 and the marked count in iparam(48). error 0, -2, or the error of the inner analysis. */
void partial_solve_ordering(int64_t n, int64_t *iparam, const int64_t *ja, const int64_t *ia, int64_t *perm, int64_t *error);

/* ---- phases (phase_*.cpp) ---------------------------------------------------------------------------------------------------------- */

/* Run one call; the result is call->error. The caller sets the arguments and real_bytes, all else is zero. */
void phase_driver(solver_call *call);

/* The steps of phase_driver. Each returns true to go on; false ends the call with error, internal_code (and skip_exit) set. */
bool refuse(solver_call *call, int64_t code);                        /* error -1 with a code; always false */
bool out_of_memory(solver_call *call, int64_t stage, int64_t bytes); /* always false */
bool plan_failed(solver_call *call);                                 /* error -2 from the state's own figures; always false */

bool attach_handle(solver_call *call);    /* load or create the record behind the handle */
bool release_or_reset(solver_call *call); /* ido 0 and -1; clean before an analysis */
bool prepare_input(solver_call *call);    /* working copies */
bool check_parameters(solver_call *call); /* apply_parameters and the refusals that need the record */
bool run_analysis(solver_call *call);
bool run_numeric(solver_call *call);
void exit_sequence(solver_call *call);
void free_input_copies(input_copies *copies);

/* ---- checks (control_defaults.cpp, apply_parameters.cpp, check_matrix.cpp, panel_columns.cpp) -------------------------------------- */

void control_defaults(void **handle, int64_t *iparam, control_block *control, int64_t matrix_type);
/* Compare the call with what the handle remembers, inspect the matrix when asked, decode iparam into control. Returns an internal code. */
int64_t apply_parameters(solver_call *call);
/* The matrix checker: a code of 21 to 24 with the finding in iparam(31) to iparam(33), or 0. */
int64_t check_matrix(int64_t matrix_type, int64_t n, const int64_t *ia, const int64_t *ja, int64_t *iparam);
int64_t element_words_of(int64_t matrix_type);
int64_t choose_panel_columns(int64_t matrix_type, int64_t threads, int64_t n, int64_t two_level, int64_t reproducible_units,
                             int64_t core_mode);

/* ---- memory (memory_plan.cpp, release_arrays.cpp) ----------------------------------------------------------------------------------- */

/* Give the work arrays of a stage (1 to 10; others do nothing) their sizes. count_only 0 allocates, else only memory_count_only grows.
   A failure is left in state->memory_error_stage and memory_error_size. */
void memory_plan(int64_t stage, int64_t count_only, solver_state *state);
/* mode 0: every work array and all stored factorizations; 1: the factors of the selected number; -1: the headers' bytes; others: nothing.
 */
void release_arrays(int64_t mode, int64_t count_only, solver_state *state);
/* Workspaces that nothing reads once the analysis is done. */
void release_analysis_arrays(solver_state *state);
/* What the numeric phases out of core do not read gives way to the windows: lists of the drivers in core, and the update lists, which kept
   files hold. */
void release_core_lists(int64_t count_only, solver_state *state);
void release_update_lists(int64_t count_only, solver_state *state);
/* Does this call refine its solution? After perturbed pivots or on request, but never behind a window that hides rows of the right-hand
   side or of the solution: there is no residual to take. */
bool refinement_due(const solver_call *call);
/* Words of the solve and factorization workspaces of this call, into state->solve_work_a and solve_work_b. */
void solve_sizes(solver_state *state, int64_t ido_internal, int64_t nb);
int64_t kilobytes(int64_t bytes); /* truncated division by 1024, plus 1 */

/* ---- stages (stage_controller.cpp, stage_numeric.cpp) -------------------------------------------------------------------------------- */

/* Run one stage. The result is in control->internal_code and ooc->stage_error. */
void stage_controller(solver_call *call, int64_t stage_number, int64_t ido_internal);
template <typename value_t>
void stage_numeric_work(solver_call *call, int64_t ido_internal);

/* ---- words (error_report.cpp, run_statistics.cpp) -------------------------------------------------------------------------------------
 */

void error_report(solver_call *call); /* may turn error -1 into -7 */
void run_statistics(solver_call *call);
