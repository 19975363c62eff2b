/* The table of texts. The solver's texts with counts stand twice: written once here, with D and I in place of the integer directives. */
#include "service/message_catalogue.h"

struct text_row {
    int32_t number;
    const char *text;
};

#define TWO_FORM_ROWS(ROW, D, I)                                                                                                           \
    ROW(message_error_class_sequence, "*** Error in SOLVARA  ( sequence_ido,parameters) error_num= " D)                                    \
    ROW(message_error_class_memory, "*** Error in SOLVARA  (     insufficient_memory) error_num= " D)                                      \
    ROW(message_error_class_reordering, "*** Error in SOLVARA  (        reordering_phase) error_num= " D)                                  \
    ROW(message_error_class_factorization, "*** Error in SOLVARA  ( numerical_factorization) error_num= " D)                               \
    ROW(message_error_class_internal, "*** Error in SOLVARA  ( internal_error,unclass.) error_num= " D)                                    \
    ROW(message_error_class_prereordering, "*** Error in SOLVARA  (prereordering_mtype11,13) error_num= " D)                               \
    ROW(message_error_class_diagonal, "*** Error in SOLVARA  ( internal_error,unclass.) error_num= " D)                                    \
    ROW(message_error_class_overflow, "*** Error in SOLVARA  (32-bit overflow problem.) error_num= " D)                                    \
    ROW(message_error_class_ooc_memory, "*** Error in SOLVARA  ( not enough mem. for OOC) error_num= " D)                                  \
    ROW(message_error_class_ooc_open, "*** Error in SOLVARA  (      open OOC tmp files) error_num= " D)                                    \
    ROW(message_error_class_ooc_data, "*** Error in SOLVARA  (read/write OOC data file) error_num= " D)                                    \
    ROW(message_error_class_matrix, "*** Error in SOLVARA  (incorrect input matrix  ) error_num= " D)                                      \
    ROW(message_internationalization, "SOLVARA Internationalization error. Message " D " is unknown.")                                     \
    ROW(message_error_ido_out_of_bounds, "*** Input check: ido_new " D " (out of bounds)")                                                 \
    ROW(message_error_max_fac_store, "*** Input check: max_fac_store_new " D " _old " D " are incompatible")                               \
    ROW(message_error_matrix_number_above, "*** Input check: max_fac_store_in " D " matrix_number_in " D)                                  \
    ROW(message_error_matrix_number_below, "*** Input check: matrix_number_new " D " ido " D " are incompatible")                          \
    ROW(message_error_matrix_type_changed, "*** Input check: matrix_type_new " D " _old " D " are incompatible")                           \
    ROW(message_error_neqns_changed, "*** Input check: neqns_new " D " _old " D " are incompatible")                                       \
    ROW(message_error_neqns_below_one, "*** Input check: neqns_new " D " ")                                                                \
    ROW(message_error_entry_count, "*** Input check: ia(neqns+1)_new " D " _old " D " are incompatible")                                   \
    ROW(message_error_entry_count_zero_based, "*** Input check: ia[neqns]_new " D " _old " D " are incompatible")                          \
    ROW(message_error_nb, "*** Input check: nb_new " D " ido " D " are incompatible")                                                      \
    ROW(message_error_iparam_6, "*** Input check: iparam(6) " D " (out of bounds)")                                                        \
    ROW(message_error_iparam_6_zero_based, "*** Input check: iparam[5] " D " (out of bounds)")                                             \
    ROW(message_error_preprocessing, "*** Input check: preprocessing " D " (out of bounds)")                                               \
    ROW(message_error_thread_count, "*** Input check: internal error, counted number of threads " D)                                       \
    ROW(message_error_nproc, "*** Input check: nproc " D " is not equal to counted number of threads " D)                                  \
    ROW(message_error_matrix_type_out_of_bounds, "*** Input check: matrix_type_new " D " (out of bounds)")                                 \
    ROW(message_error_empty_arrays, "*** Input check: empty input arrays ia and/or ja")                                                    \
    ROW(message_error_invalid_sizes, "*** Input check: neqns " D " or ia[neqns_in] " D " are invalid")                                     \
    ROW(message_error_working_arrays, "*** Input check: unexpected error with working arrays ia and/or ja")                                \
    ROW(message_error_unclassified, "*** Error in SOLVARA: unclassified error")                                                            \
    ROW(message_error_wrong_step, "*** wrong control step parameter ido " D)                                                               \
    ROW(message_error_row_pointers, "*** Input check: i=" D ", ia(i)=" D ", ia(i+1)=" D " are incompatible")                               \
    ROW(message_error_row_pointers_zero_based, "*** Input check: i=" D ", ia[i]=" D ", ia[i+1]=" D " are incompatible")                    \
    ROW(message_error_column_range, "*** Input check: i=" D ", ja(i)=" D ", neqns=" D " are incompatible")                                 \
    ROW(message_error_column_range_zero_based, "*** Input check: i=" D ", ja[i]=" D ", neqns=" D " are incompatible")                      \
    ROW(message_error_below_diagonal, "*** Input check: i=" D ", j=ia(i)=" D ", ja(j)=" D " are incompatible")                             \
    ROW(message_error_below_diagonal_zero_based, "*** Input check: i=" D ", j=ia[i]=" D ", ja[j]=" D " are incompatible")                  \
    ROW(message_error_column_order, "*** Input check: j=" D ", ja(j)=" D ", ja(j+1)=" D " are incompatible")                               \
    ROW(message_error_column_order_zero_based, "*** Input check: j=" D ", ja[j]=" D ", ja[j+1]=" D " are incompatible")                    \
    ROW(message_error_two_level_ooc, "*** Input check: Two-level factorization algorithm does not work in OOC mode.")                      \
    ROW(message_error_sequential_ooc,                                                                                                      \
        "*** Input check: Sequential OOC mode of factorization is incompatible with sequential IC mode of reordering")                     \
    ROW(message_error_wrong_matrix_number_clean, "*** Error in SOLVARA: wrong matrix number, clean " D)                                    \
    ROW(message_error_only_symbolic_diagonal, "*** Error in SOLVARA: only symbolic factorization diagonal matrix case " D)                 \
    ROW(message_error_ido_and_initialization, "*** Error in SOLVARA: ido<1 and initialization")                                            \
    ROW(message_error_contradiction, " - contradiction (set ido>0) " D)                                                                    \
    ROW(message_error_ido_below_minus_one, "*** Error in SOLVARA: ido<-1")                                                                 \
    ROW(message_error_clean_impossible, "*** Error in SOLVARA: clean impossible (ido?)")                                                   \
    ROW(message_error_diagonal_row, "*** something wrong with diagonal matrix row " D)                                                     \
    ROW(message_recap_inconsistent, "*** Input parameters: inconsistent error= " D " max_fac_store_in: " D)                                \
    ROW(message_recap_matrix, "          matrix_number_in: " I " matrix_type_in: " D)                                                      \
    ROW(message_recap_sizes, "          ido_in          : " D " neqns_in      : " D)                                                       \
    ROW(message_recap_entries, "          ia(neqns_in+1)-1: " D " nb_in         : " D)                                                     \
    ROW(message_recap_entries_zero_based, "          ia[neqns_in]-1  : " D " nb_in         : " D)                                          \
    ROW(message_memory_allocate_global_structure,                                                                                          \
        "*** Error in SOLVARA memory allocation: ALLOCATE_GLOBAL_STRUCTURE, allocation of " D " bytes failed")                             \
    ROW(message_memory_matching_reordering_data,                                                                                           \
        "*** Error in SOLVARA memory allocation: MATCHING_REORDERING_DATA, allocation of " D " bytes failed")                              \
    ROW(message_memory_before_reordering, "*** Error in SOLVARA memory allocation: BEFORE_REORDERING, allocation of " D " bytes failed")   \
    ROW(message_memory_before_symbolic_factorization,                                                                                      \
        "*** Error in SOLVARA memory allocation: BEFORE_SYMBOLIC_FACTORIZATION, allocation of " D " bytes failed")                         \
    ROW(message_memory_before_init_parallel_data,                                                                                          \
        "*** Error in SOLVARA memory allocation: BEFORE_INIT_PARALLEL_DATA, allocation of " D " bytes failed")                             \
    ROW(message_memory_after_reordering, "*** Error in SOLVARA memory allocation: AFTER_REORDERING, allocation of " D " bytes failed")     \
    ROW(message_memory_ooc_tree_structure, "*** Error in SOLVARA memory allocation: OOC_TREE_STRUCTURE, allocation of " D " bytes failed") \
    ROW(message_memory_realloc_ooc_arrays, "*** Error in SOLVARA memory allocation: REALLOC_OOC_ARRAYS, allocation of " D " bytes failed") \
    ROW(message_memory_factorize_solving_lu_data,                                                                                          \
        "*** Error in SOLVARA memory allocation: FACTORIZE_SOLVING_LU_DATA, allocation of " D " bytes failed")                             \
    ROW(message_memory_factorize_solving_work_data,                                                                                        \
        "*** Error in SOLVARA memory allocation: FACTORIZE_SOLVING_WORK_DATA, allocation of " D " bytes failed")                           \
    ROW(message_memory_solving_iterref_work_data,                                                                                          \
        "*** Error in SOLVARA memory allocation: SOLVING_ITERREF_WORK_DATA, allocation of " D " bytes failed")                             \
    ROW(message_memory_total, "total memory wanted here: " D " kbyte")                                                                     \
    ROW(message_old_memory_basic, "*** Error in SOLVARA memory allocation: BASIC   , size to allocate: " D " bytes")                       \
    ROW(message_old_memory_fact_adr, "*** Error in SOLVARA memory allocation: FACT_ADR, size to allocate: " D " bytes")                    \
    ROW(message_old_memory_loc_int1, "*** Error in SOLVARA memory allocation: LOC_INT1, size to allocate: " D " bytes")                    \
    ROW(message_old_memory_struc_s0, "*** Error in SOLVARA memory allocation: STRUC_S0, size to allocate: " D " bytes")                    \
    ROW(message_old_memory_work_i0, "*** Error in SOLVARA memory allocation: WORK_I0, size to allocate: " D " bytes")                      \
    ROW(message_old_memory_struc_s1, "*** Error in SOLVARA memory allocation: STRUC_S1, size to allocate: " D " bytes")                    \
    ROW(message_old_memory_struc_s2, "*** Error in SOLVARA memory allocation: STRUC_S2, size to allocate: " D " bytes")                    \
    ROW(message_old_memory_struc_fi, "*** Error in SOLVARA memory allocation: STRUC_FI, size to allocate: " D " bytes")                    \
    ROW(message_old_memory_loc_int2, "*** Error in SOLVARA memory allocation: LOC_INT2, size to allocate: " D " bytes")                    \
    ROW(message_old_memory_up_uplen, "*** Error in SOLVARA memory allocation: UP_UPLEN, size to allocate: " D " bytes")                    \
    ROW(message_old_memory_fact_l_u, "*** Error in SOLVARA memory allocation: FACT_L&U, size to allocate: " D " bytes")                    \
    ROW(message_old_memory_work_r0, "*** Error in SOLVARA memory allocation: WORK_R0, size to allocate: " D " bytes")                      \
    ROW(message_old_memory_cgs_arr, "*** Error in SOLVARA memory allocation: CGS_ARR, size to allocate: " D " bytes")                      \
    ROW(message_error_reordering, "*** error SOLVARA: reordering, symbolic factorization")                                                 \
    ROW(message_error_cgs, "*** Error in SOLVARA: cgs error iparam(20) " D)                                                                \
    ROW(message_error_cgs_zero_based, "*** Error in SOLVARA: cgs error iparam[19] " D)                                                     \
    ROW(message_error_refinement, "*** error SOLVARA: iterative refinement")                                                               \
    ROW(message_error_contraction_rate, " contraction rate is greater than 0.9, interrupt")                                                \
    ROW(message_error_iteration_number, " exceeds maximum iteration number " D)                                                            \
    ROW(message_error_factorization_memory, "*** Error in SOLVARA: internal error, insufficient memory factorization")                     \
    ROW(message_error_not_spd, "*** Error in SOLVARA: zero or negative pivot, A is not SPD-matrix")                                        \
    ROW(message_error_zero_pivot, "*** Error in SOLVARA: zero pivot")                                                                      \
    ROW(message_error_preordering, "*** Error in SOLVARA: preordering failed after " D " neqns out of " D)                                 \
    ROW(message_error_structure_singular, "structure singular or input/parameter problem (matrixtype 11,13)")                              \
    ROW(message_error_permutation_range, "Permutation contains " D " out-of-range elements (first:  " D " -> " D ")")                      \
    ROW(message_error_unclassified_array, "Error in get_from_c_structure: unclassified swtch !!! swtch=" D "\n")                           \
    ROW(message_report_processors, "< Parallel Direct Factorization with number of processors: > " D)                                      \
    ROW(message_report_equations, "             number of equations:           " D)                                                        \
    ROW(message_report_nonzeros_a, "             number of non-zeros in A:      " D)                                                       \
    ROW(message_report_right_hand_sides, "             number of right-hand sides:    " D)                                                 \
    ROW(message_report_panel_columns, "             number of columns for each panel: " D)                                                 \
    ROW(message_report_subgraphs, "             number of independent subgraphs:  " D)                                                     \
    ROW(message_report_supernodes, "             number of supernodes:                    " D)                                             \
    ROW(message_report_largest_supernode, "             size of largest supernode:               " D)                                      \
    ROW(message_report_nonzeros_l, "             number of non-zeros in L:                " D)                                             \
    ROW(message_report_nonzeros_u, "             number of non-zeros in U:                " D)                                             \
    ROW(message_report_nonzeros_l_u, "             number of non-zeros in L+U:              " D)                                           \
    ROW(message_report_factors_deleted, "L&U for matrix number " D " deleted")                                                             \
    ROW(message_report_memory_cleaned, "cleaned memory, deleted number of L&U-factorizations: " D)                                         \
    ROW(message_report_version, "The local (internal) SOLVARA version is                          : " D)                                   \
    ROW(message_time_cgs_iterations, "Time spent in iterative solver at solve step (cgs)               : %f s cgx iterations " D)          \
    ROW(message_ooc_file_write_percent, "      write to files : " D " %%")                                                                 \
    ROW(message_ooc_file_read_percent, "      read from files: " D " %%")                                                                  \
    ROW(message_ooc_factorization_percent, "      factorization - write&read: " D " %%")                                                   \
    ROW(message_ooc_solve_percent, "      solve - write&read: " D " %%")                                                                   \
    ROW(message_ooc_total_percent, "      total - write&read: " D " %%")                                                                   \
    ROW(message_factorization_percent, "Solvara: factorization phase " D " %%")

#define NARROW(number, text) {number, text},
#define WIDE(number, text) {message_wide(number), text},

/* clang-format off */
static constexpr text_row text_rows[] = {
    {message_line_end, "\n"},
    {message_cannot_load, "Norvi WKL FATAL ERROR: Cannot load %s."},
    {message_parameter, "Norvi WKL ERROR: Parameter %d was incorrect on entry to %s."},
    {message_condition, "Norvi WKL INTERNAL ERROR: Condition %d detected in function %s."},
    {message_workspace, "Norvi WKL INTERNAL ERROR: Insufficient workspace available in function %s."},
    {message_optional_parameters, "Norvi WKL ERROR: Incompatible optional parameters on entry to %s."},
    {message_work_memory, "Norvi WKL INTERNAL ERROR: Not enough work memory in function %s"},
    {message_cores, "Number of cores: %i"},
    {message_requirements, "Norvi WKL FATAL ERROR: This system does not meet the minimum requirements for use of the Norvi(R) Wide Kernel Library."},
    {message_sse2_required, "The processor must support the Norvi(R) Streaming SIMD 2 Extensions (Norvi(R) SSE2) instructions."},
    {message_coprocessor, "Norvi WKL INTERNAL ERROR: Issue accessing coprocessor %s."},
    {message_cpu_unsupported, "Norvi WKL ERROR: CPU %d is not supported."},
    TWO_FORM_ROWS(NARROW, "%d", "%i")
    TWO_FORM_ROWS(WIDE, "%lli", "%lli")
    {message_report_times, "Times:"},
    {message_report_times_rule, "======"},
    {message_report_statistics, "Statistics:"},
    {message_report_statistics_rule, "==========="},
    {message_report_hybrid, "< Hybrid Solver SOLVARA with CGS/CG Iteration >"},
    {message_report_blas3_synchronization, "< Numerical Factorization with BLAS3 and O(n) synchronization >"},
    {message_report_level3_performance, "< Numerical Factorization with Level-3 BLAS performance >"},
    {message_report_linear_system, "< Linear system Ax = b >"},
    {message_report_linear_system_transpose, "< Linear system Ax = b > < transpose >"},
    {message_report_factors, "< Factors L and U >"},
    {message_report_minimum_degree, "< Preprocessing with multiple minimum degree, tree height >"},
    {message_report_reduction, "< Reduction for efficient parallel factorization >"},
    {message_report_constrained_minimum_degree, "< Preprocessing with multiple minimum degree with constraints >"},
    {message_report_separator_minimum_degree, "< with multiple minimum degree on the separator nodes         >"},
    {message_report_separator_no_minimum_degree, "<   no multiple minimum degree on the separator nodes         >"},
    {message_report_metis, "< Preprocessing with state of the art partitioning metis>"},
    {message_report_input_permutation, "< Preprocessing with input permutation >"},
    {message_report_user_permutation_on, "User provided fill-in reducing permutation is turned ON"},
    {message_report_minimum_degree_on, "Minimum degree algorithm at reorder step is turned ON"},
    {message_report_metis_on, "METIS algorithm at reorder step is turned ON"},
    {message_report_parallel_metis_on, "Parallel METIS algorithm at reorder step is turned ON"},
    {message_report_fits_ram_ooc_nll, "Task fits RAM, OOC NLL factorization algorithm is turned ON"},
    {message_report_ooc_pu, "Task does not fit RAM, OOC PU factorization algorithm is turned ON"},
    {message_report_ooc_nll, "Task does not fit RAM, OOC NLL factorization algorithm is turned ON"},
    {message_report_single_level, "Single-level factorization algorithm is turned ON"},
    {message_report_two_level, "Two-level factorization algorithm is turned ON"},
    {message_report_scaling, "Scaling is turned ON"},
    {message_report_matching, "Matching is turned ON"},
    {message_report_checker, "Matrix checker is turned ON"},
    {message_report_one_based, "1-based array indexing is turned ON"},
    {message_report_zero_based, "0-based array is turned ON"},
    {message_report_double_precision, "SOLVARA double precision computation is turned ON"},
    {message_report_single_precision, "SOLVARA single precision computation is turned ON"},
    {message_report_reproducibility, "Conditional numerical reproducibility mode is turned ON"},
    {message_report_density, "             number of non-zeros in A (%%): %f"},
    {message_report_gflop, "             gflop   for the numerical factorization: %f"},
    {message_report_gflop_rate, "             gflop/s for the numerical factorization: %f"},
    {message_report_norm, "             ||A||                                    %f"},
    {message_report_r8write, "Calling r8write without FORTRAN_IO, iparam(9)=0"},
    {message_type_structurally_symmetric, "=== SOLVARA: solving a real structurally symmetric system ==="},
    {message_type_positive_definite, "=== SOLVARA: solving a symmetric positive definite system ==="},
    {message_type_indefinite, "=== SOLVARA: solving a symmetric indefinite system ==="},
    {message_type_complex_structurally_symmetric, "=== SOLVARA: solving a complex structurally symmetric system ==="},
    {message_type_hermitian_positive_definite, "=== SOLVARA: solving a Hermitian positive definite system ==="},
    {message_type_hermitian_indefinite, "=== SOLVARA: solving a Hermitian indefinite system ==="},
    {message_type_complex_symmetric, "=== SOLVARA: solving a complex symmetric system ==="},
    {message_type_nonsymmetric, "=== SOLVARA: solving a real nonsymmetric system ==="},
    {message_type_complex_nonsymmetric, "=== SOLVARA: solving a complex nonsymetric system ==="},
    {message_summary_reordering, "Summary: ( reordering phase )"},
    {message_summary_factorization, "Summary: ( factorization phase )"},
    {message_summary_solution, "Summary: ( solution phase )"},
    {message_summary_cleaning, "Summary: ( cleaning phase )"},
    {message_summary_reordering_factorization, "Summary: ( starting phase is reordering, ending phase is factorization )"},
    {message_summary_reordering_solution, "Summary: ( starting phase is reordering, ending phase is solution )"},
    {message_summary_factorization_solution, "Summary: ( starting phase is factorization, ending phase is solution )"},
    {message_summary_rule, "================"},
    {message_in_core_asked, "=== SOLVARA is running in In-Core mode, because iparam(60)=0 ==="},
    {message_ooc_asked, "=== SOLVARA is running in Out-Of-Core mode, because iparam(60)=2 ==="},
    {message_in_core_fits, "=== SOLVARA is running in In-Core mode, because iparam(60)=1 and there is enough RAM for In-Core ==="},
    {message_ooc_does_not_fit, "=== SOLVARA is running in Out-Of-Core mode, because iparam(60)=1 and there is not enough RAM for In-Core ==="},
    {message_error_ooc_minimum, "*** Error in SOLVARA: minimal memory required by OOC mode (%lliMB) is greater than variable WKL_SOLVARA_OOC_MAX_CORE_SIZE (%dMB)"},
    {message_local_version, " local SOLVARA version is %ld\n"},
    {message_error_internal, "*** SOLVARA error: internal error"},
    {message_error_system, "System error in SOLVARA"},
    {message_error_permutation_range_long, "Permutation contains %d out-of-range elements (first:  %d -> %ld)"},
    {message_ooc_env_cfg_path, "ooc_cfg_path       got by Env=%s"},
    {message_ooc_env_cfg_file_name, "ooc_cfg_file_name  got by Env=%s"},
    {message_ooc_env_path, "ooc_path           got by Env=%s"},
    {message_ooc_env_max_core_size, "ooc_max_core_size  got by Env=%d"},
    {message_ooc_env_max_swap_size, "ooc_max_swap_size got by Env=%d"},
    {message_ooc_env_keep_file, "ooc_keep_file      got by Env=%d"},
    {message_ooc_cfg_not_opened, "The file %s was not opened"},
    {message_ooc_open_error, "SOLVARA_OOC_OPEN_FILE_ERROR occurred: %s"},
    {message_ooc_close_error, "SOLVARA_OOC_CLOSE_FILE_ERROR occurred: %s"},
    {message_ooc_read_error, "SOLVARA_OOC_READ_FILE_ERROR occurred: %s"},
    {message_ooc_write_error, "SOLVARA_OOC_WRITE_FILE_ERROR occurred: %s"},
    {message_ooc_solve_open_lindx, "solution step: open file for reading lindx"},
    {message_ooc_solve_open_lnz, "solution step: open file for reading lnz"},
    {message_ooc_solve_open_unz, "solution step: open file for reading unz"},
    {message_ooc_solve_close_lnz, "solution step: close lnz"},
    {message_ooc_solve_close_lindx, "solution step: close lindx"},
    {message_ooc_solve_close_unz, "solution step: close unz"},
    {message_ooc_factorization_write_time, "      Factorization: Time for writing to files  : %f"},
    {message_ooc_factorization_read_time, "      Factorization: Time for reading from files: %f"},
    {message_ooc_solution_read_time, "      Solution:      Time for reading from files: %f"},
    {message_ooc_rule, "=============================================================="},
    {message_ooc_percent_title, "----------- Out of core time (in percent (%%)) --------------"},
    {message_ooc_factorization_step_percent, "Factorization step (100 (%%)):"},
    {message_ooc_solution_step_percent, "Solution step (100 (%%)):"},
    {message_ooc_total_time_percent, "Total time (100 (%%)):"},
    {message_ooc_mb_title, "----------- Out of core Mb --------------"},
    {message_ooc_factorization_step, "Factorization step:"},
    {message_ooc_solution_step, "Solution step:"},
    {message_ooc_total_size, "Total size of data transferred:"},
    {message_ooc_write_mb, "      write to files : %10.3f Mb"},
    {message_ooc_read_mb, "      read from files: %10.3f Mb"},
    {message_ooc_write_read_mb, "      write&read     : %10.3f Mb"},
    {message_time_fulladj, "Time spent in calculations of symmetric matrix portrait (fulladj): %f s"},
    {message_time_reorder, "Time spent in reordering of the initial matrix (reorder)         : %f s"},
    {message_time_symbfct, "Time spent in symbolic factorization (symbfct)                   : %f s"},
    {message_time_parlist, "Time spent in data preparations for factorization (parlist)      : %f s"},
    {message_time_a_to_lu, "Time spent in copying matrix to internal data structure (A to LU): %f s"},
    {message_time_numfct, "Time spent in factorization step (numfct)                        : %f s"},
    {message_time_solve, "Time spent in direct solver at solve step (solve)                : %f s"},
    {message_time_cgs, "Time spent in iterative solver at solve step (cgs)               : %f s"},
    {message_time_malloc, "Time spent in allocation of internal data structures (malloc)    : %f s"},
    {message_time_additional, "Time spent in additional calculations                            : %f s"},
    {message_time_total, "Total time spent                                                 : %f s"},
    {message_time_sum_fulladj, "Time spent in calculations of symmetric matrix portrait (fulladj): %f s total - sum: %f s"},
    {message_time_sum_reorder, "Time spent in reordering of the initial matrix (reorder)         : %f s total - sum: %f s"},
    {message_time_sum_symbfct, "Time spent in symbolic factorization (symbfct)                   : %f s total - sum: %f s"},
    {message_time_sum_parlist, "Time spent in data preparations for factorization (parlist)      : %f s total - sum: %f s"},
    {message_time_sum_a_to_lu, "Time spent in copying matrix to internal data structure (A to LU): %f s total - sum: %f s"},
    {message_time_sum_numfct, "Time spent in factorization step (numfct)                        : %f s total - sum: %f s"},
    {message_time_sum_solve, "Time spent in direct solver at solve step (solve)                : %f s total - sum: %f s"},
    {message_time_sum_cgs, "Time spent in iterative solver at solve step (cgs)               : %f s total - sum: %f s"},
    {message_time_sum_malloc, "Time spent in allocation of internal data structures (malloc)    : %f s total - sum: %f s"},
    {message_time_sum_additional, "Time spent in additional calculations                            : %f s total - sum: %f s"},
    {message_time_sum_total, "Total time spent                                                 : %f s total - sum: %f s"},
};
/* clang-format on */

struct level_range {
    int32_t last; /* rows up to this one, from the end of the range before */
    int32_t level;
};
static constexpr level_range level_ranges[] = {{0, 1},    {3, 4},    {5, 2},    {760, 4},  {761, 2},  {1057, 4}, {1062, 1}, {1063, 4},
                                               {1083, 1}, {1089, 4}, {1090, 1}, {1237, 4}, {1242, 1}, {1398, 4}, {1403, 1}};

static consteval catalogue build_catalogue()
{
    catalogue all{};
    const level_range *range = level_ranges;
    for (int32_t n = 0; n < message_count; ++n) {
        if (n > range->last) ++range;
        all.row[n] = {n, range->level, ""};
    }
    for (const text_row &given : text_rows) all.row[given.number].text = given.text;
    return all;
}

static consteval bool every_number_stands_once()
{
    bool seen[message_count] = {};
    for (const text_row &given : text_rows) {
        if (seen[given.number]) return false;
        seen[given.number] = true;
    }
    return true;
}
static_assert(every_number_stands_once());

constinit const catalogue message_catalogue = build_catalogue();
