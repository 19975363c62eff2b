/* Private to this room: the lines of the report by their report codes, which callers of the report know them by. */
#pragma once

#include <cstdint>

#include "state/records.h"

/* Report codes; those of the matrix types are the types themselves. */
enum report_code : int64_t {
    report_times_title = 101,
    report_times_rule = 102,
    report_statistics_title = 103,
    report_statistics_rule = 104,
    report_processors = 105,
    report_hybrid = 106,
    report_blas3 = 107,
    report_level3 = 108,
    report_system = 109,
    report_system_transpose = 110,
    report_equations = 111,
    report_nonzeros_a = 113,
    report_right_hand_sides = 116,
    report_factors = 118,
    report_minimum_degree = 119,
    report_reduction = 120,
    report_panel_columns = 121,
    report_subgraphs = 123,
    report_constrained = 125,
    report_separator_ordered = 126,
    report_separator_given = 127,
    report_metis = 128,
    report_input_permutation = 129,
    report_supernodes = 130,
    report_largest_supernode = 132,
    report_nonzeros_l = 134,
    report_nonzeros_u = 136,
    report_nonzeros_both = 138,
    report_factors_deleted = 140,
    report_memory_cleaned = 141,
    report_version_narrow = 160,
    report_version = 161,
    report_user_permutation = 162,
    report_minimum_degree_on = 163, /* plus iparam(2): 164 has no text */
    report_metis_on = 165,
    report_parallel_metis_on = 166,
    report_fits_ooc_nll = 167,
    report_ooc_pu = 169,
    report_ooc_nll = 170,
    report_single_level = 171,
    report_two_level = 172,
    report_scaling = 173,
    report_matching = 174,
    report_checker = 175,
    report_one_based = 176,
    report_zero_based = 177,
    report_double_precision = 178,
    report_single_precision = 179,
    report_reproducibility = 180,
    report_density = 215,
    report_gflop = 240,
    report_gflop_rate = 241,
    report_norm = 242,
    report_r8write = 310
};

/* Times: 131 to 141 with one value. */
enum report_time_code : int64_t { report_time_first = 131, report_time_additional = 140, report_time_total = 141 };

void report_blank();
void report_line(int64_t code, int64_t value = 0); /* a line without or with one count; an unknown code prints that it is unknown */
void report_value(int64_t code, double value);     /* a line with one real number */
void report_time(int64_t code, double seconds);
void report_cgs_time(double seconds, int64_t iterations);
void report_summary(int64_t first, int64_t last); /* the phases that ran, by their digits, underlined */
void report_cleaning_summary();

/* Out of core: seconds of the transfers, and the block that closes a solve. */
void report_factorization_transfer(double write_seconds, double read_seconds);
void report_solution_transfer(double read_seconds);
void report_ooc_block(const ooc_state *ooc);
