#include "solver/report_lines.h"

#include "service/message_numbers.h"
#include "service/service.h"

namespace
{
enum class value_kind { none, count, real };
struct line_row {
    int64_t code;
    int32_t message;
    value_kind kind;
};

constexpr line_row line_rows[] = {
    {1, message_type_structurally_symmetric, value_kind::none},
    {2, message_type_positive_definite, value_kind::none},
    {-2, message_type_indefinite, value_kind::none},
    {3, message_type_complex_structurally_symmetric, value_kind::none},
    {4, message_type_hermitian_positive_definite, value_kind::none},
    {-4, message_type_hermitian_indefinite, value_kind::none},
    {6, message_type_complex_symmetric, value_kind::none},
    {11, message_type_nonsymmetric, value_kind::none},
    {13, message_type_complex_nonsymmetric, value_kind::none},
    {report_times_title, message_report_times, value_kind::none},
    {report_times_rule, message_report_times_rule, value_kind::none},
    {report_statistics_title, message_report_statistics, value_kind::none},
    {report_statistics_rule, message_report_statistics_rule, value_kind::none},
    {report_processors, message_report_processors, value_kind::count},
    {report_hybrid, message_report_hybrid, value_kind::none},
    {report_blas3, message_report_blas3_synchronization, value_kind::none},
    {report_level3, message_report_level3_performance, value_kind::none},
    {report_system, message_report_linear_system, value_kind::none},
    {report_system_transpose, message_report_linear_system_transpose, value_kind::none},
    {report_equations, message_report_equations, value_kind::count},
    {report_nonzeros_a, message_report_nonzeros_a, value_kind::count},
    {report_right_hand_sides, message_report_right_hand_sides, value_kind::count},
    {report_factors, message_report_factors, value_kind::none},
    {report_minimum_degree, message_report_minimum_degree, value_kind::none},
    {report_reduction, message_report_reduction, value_kind::none},
    {report_panel_columns, message_report_panel_columns, value_kind::count},
    {report_subgraphs, message_report_subgraphs, value_kind::count},
    {report_constrained, message_report_constrained_minimum_degree, value_kind::none},
    {report_separator_ordered, message_report_separator_minimum_degree, value_kind::none},
    {report_separator_given, message_report_separator_no_minimum_degree, value_kind::none},
    {report_metis, message_report_metis, value_kind::none},
    {report_input_permutation, message_report_input_permutation, value_kind::none},
    {report_supernodes, message_report_supernodes, value_kind::count},
    {report_largest_supernode, message_report_largest_supernode, value_kind::count},
    {report_nonzeros_l, message_report_nonzeros_l, value_kind::count},
    {report_nonzeros_u, message_report_nonzeros_u, value_kind::count},
    {report_nonzeros_both, message_report_nonzeros_l_u, value_kind::count},
    {report_factors_deleted, message_report_factors_deleted, value_kind::count},
    {report_memory_cleaned, message_report_memory_cleaned, value_kind::count},
    {report_version_narrow, message_report_version, value_kind::count},
    {report_version, message_report_version, value_kind::count},
    {report_user_permutation, message_report_user_permutation_on, value_kind::none},
    {report_minimum_degree_on, message_report_minimum_degree_on, value_kind::none},
    {report_metis_on, message_report_metis_on, value_kind::none},
    {report_parallel_metis_on, message_report_parallel_metis_on, value_kind::none},
    {report_fits_ooc_nll, message_report_fits_ram_ooc_nll, value_kind::none},
    {report_ooc_pu, message_report_ooc_pu, value_kind::none},
    {report_ooc_nll, message_report_ooc_nll, value_kind::none},
    {report_single_level, message_report_single_level, value_kind::none},
    {report_two_level, message_report_two_level, value_kind::none},
    {report_scaling, message_report_scaling, value_kind::none},
    {report_matching, message_report_matching, value_kind::none},
    {report_checker, message_report_checker, value_kind::none},
    {report_one_based, message_report_one_based, value_kind::none},
    {report_zero_based, message_report_zero_based, value_kind::none},
    {report_double_precision, message_report_double_precision, value_kind::none},
    {report_single_precision, message_report_single_precision, value_kind::none},
    {report_reproducibility, message_report_reproducibility, value_kind::none},
    {report_density, message_report_density, value_kind::real},
    {report_gflop, message_report_gflop, value_kind::real},
    {report_gflop_rate, message_report_gflop_rate, value_kind::real},
    {report_norm, message_report_norm, value_kind::real},
    {report_r8write, message_report_r8write, value_kind::none},
};

struct summary_row {
    int64_t first, last;
    int32_t message;
};
constexpr summary_row summary_rows[] = {
    {1, 1, message_summary_reordering},
    {2, 2, message_summary_factorization},
    {3, 3, message_summary_solution},
    {1, 2, message_summary_reordering_factorization},
    {1, 3, message_summary_reordering_solution},
    {2, 3, message_summary_factorization_solution},
};

void print(int32_t message)
{
    service_print_message(0, message, 0);
}

/* Per cent sign and counts share these texts. */
void print_count(int32_t message, int64_t value)
{
    service_print_message(0, message_wide(message), 1, value);
}

void print_real(int32_t message, double value)
{
    service_print_message(0, message, 1, value);
}

void report_unknown(int64_t code)
{
    print_count(message_internationalization, code);
}

const line_row *find_line(int64_t code)
{
    for (const line_row &row : line_rows) {
        if (row.code == code) return &row;
    }
    return nullptr;
}

double megabytes(int64_t bytes)
{
    return static_cast<double>(bytes) / 1e6;
}
} // namespace

void report_blank()
{
    print(message_line_end);
}

void report_line(int64_t code, int64_t value)
{
    const line_row *row = find_line(code);
    if (row == nullptr || row->kind == value_kind::real)
        report_unknown(code);
    else if (row->kind == value_kind::count)
        print_count(row->message, value);
    else
        print(row->message);
}

void report_value(int64_t code, double value)
{
    const line_row *row = find_line(code);
    if (row == nullptr || row->kind != value_kind::real)
        report_unknown(code);
    else
        print_real(row->message, value);
}

void report_time(int64_t code, double seconds)
{
    if (code < report_time_first || code > report_time_total)
        report_unknown(code);
    else
        print_real(static_cast<int32_t>(message_time_fulladj + code - report_time_first), seconds);
}

void report_cgs_time(double seconds, int64_t iterations)
{
    service_print_message(0, message_wide(message_time_cgs_iterations), 2, seconds, iterations);
}

void report_summary(int64_t first, int64_t last)
{
    for (const summary_row &row : summary_rows) {
        if (row.first == first && row.last == last) print(row.message);
    }
    print(message_summary_rule);
}

void report_cleaning_summary()
{
    print(message_summary_cleaning);
}

void report_factorization_transfer(double write_seconds, double read_seconds)
{
    print_real(message_ooc_factorization_write_time, write_seconds);
    print_real(message_ooc_factorization_read_time, read_seconds);
}

void report_solution_transfer(double read_seconds)
{
    print_real(message_ooc_solution_read_time, read_seconds);
}

void report_ooc_block(const ooc_state *ooc)
{
    print(message_ooc_rule);
    print(message_ooc_percent_title);
    print(message_ooc_factorization_step_percent);
    print_count(message_ooc_file_write_percent, ooc->percent_write_factor);
    print_count(message_ooc_file_read_percent, ooc->percent_read_factor);
    print_count(message_ooc_factorization_percent, 100 - ooc->percent_write_factor - ooc->percent_read_factor);
    print(message_ooc_solution_step_percent);
    print_count(message_ooc_file_read_percent, ooc->percent_read_solve);
    print_count(message_ooc_solve_percent, 100 - ooc->percent_read_solve);
    print(message_ooc_total_time_percent);
    print_count(message_ooc_file_read_percent, ooc->percent_total);
    print_count(message_ooc_total_percent, 100 - ooc->percent_total);
    print(message_ooc_mb_title);
    print(message_ooc_factorization_step);
    print_real(message_ooc_write_mb, megabytes(ooc->written_factor));
    print_real(message_ooc_read_mb, megabytes(ooc->read_factor));
    print(message_ooc_solution_step);
    print_real(message_ooc_read_mb, megabytes(ooc->read_solve));
    print(message_ooc_total_size);
    print_real(message_ooc_write_read_mb, megabytes(ooc->written_factor + ooc->read_factor + ooc->read_solve));
}
