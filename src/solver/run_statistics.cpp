/* The report that closes a talking call: what ran, the times, and the figures of matrix and factors. */
#include "service/service.h"
#include "solver/control.h"
#include "solver/report_lines.h"

namespace
{
constexpr int64_t timer_count = 10;
enum timer_number : int64_t { timer_numfct = 6, timer_solve = 7, timer_cgs = 8, timer_total = 10 };

double timer_value(const phase_times &times, int64_t timer)
{
    const double values[timer_count] = {times.time_fulladj, times.time_reorder, times.time_symbfct, times.time_parlist, times.time_a_to_lu,
                                        times.time_numfct,  times.time_solve,   times.time_cgs,     times.time_malloc,  times.time_total};
    return values[timer - 1];
}

bool timer_runs(const run_flags &flags, int64_t timer)
{
    const int32_t values[timer_count] = {flags.fulladj, flags.reorder, flags.symbfct, flags.parlist, flags.a_to_lu,
                                         flags.numfct,  flags.solve,   flags.cgs,     flags.malloc,  flags.total};
    return values[timer - 1] != 0;
}

bool out_of_core(const solver_call *call)
{
    return call->ooc->core_mode == core_out;
}

void close_times(solver_call *call)
{
    phase_times &times = call->control->times;
    const double now = service_seconds();
    times.time_total = now - times.time_total;
    times.time_malloc += now - times.time_stamp;
    if (out_of_core(call)) call->state->transfer->total_seconds += times.time_total;
    call->flags.total = 1;
}

/* How the analysis was asked for. */
void report_settings(const solver_call *call)
{
    if (call->flags.fulladj == 0 && call->flags.reorder == 0) return;
    int64_t *iparam = call->iparam;
    report_line(report_version, iparam_at(iparam, iparam_version));
    if (iparam_at(iparam, iparam_matrix_checker) == 1) report_line(report_checker);
    report_line(iparam_at(iparam, iparam_zero_based) == 0 ? report_one_based : report_zero_based);
    report_line(iparam_at(iparam, iparam_single_precision) == 1 ? report_single_precision : report_double_precision);
    if (iparam_at(iparam, iparam_perm_mode) == 1)
        report_line(report_user_permutation);
    else
        report_line(report_minimum_degree_on + iparam_at(iparam, iparam_preprocessing));
    if (call->control->reproducible_units > 0) report_line(report_reproducibility);
    if (iparam_at(iparam, iparam_scaling) == 1) report_line(report_scaling);
    if (iparam_at(iparam, iparam_matching) == 1) report_line(report_matching);
}

void report_scheme(const solver_call *call)
{
    if (call->flags.a_to_lu == 0) return;
    if (out_of_core(call))
        report_line(report_ooc_pu);
    else
        report_line(call->control->two_level == 0 ? report_single_level : report_two_level);
}

void report_cleaning(const solver_call *call)
{
    report_cleaning_summary();
    if (call->matrix_number < 1)
        report_line(report_memory_cleaned, -call->matrix_number);
    else
        report_line(report_factors_deleted, call->matrix_number);
    report_blank();
}

int64_t percent(double part, double whole)
{
    return static_cast<int64_t>(part * 100.0 / whole);
}

void refresh_percentages(const solver_call *call)
{
    const phase_times &times = call->control->times;
    const ooc_transfer_stats *stats = call->state->transfer;
    ooc_state *ooc = call->ooc;
    if (times.time_numfct > 0) {
        ooc->percent_write_factor = percent(stats->write_factor_seconds, times.time_numfct);
        ooc->percent_read_factor = percent(stats->read_factor_seconds, times.time_numfct);
    }
    if (times.time_solve > 0) ooc->percent_read_solve = percent(stats->read_solve_seconds, times.time_solve);
    const double transferred = stats->write_factor_seconds + stats->read_factor_seconds + stats->read_solve_seconds;
    if (stats->total_seconds > 0) ooc->percent_total = percent(transferred, stats->total_seconds);
}

void report_transfer_seconds(const solver_call *call, int64_t timer)
{
    const ooc_transfer_stats *stats = call->state->transfer;
    refresh_percentages(call);
    if (timer == timer_numfct) report_factorization_transfer(stats->write_factor_seconds, stats->read_factor_seconds);
    if (timer == timer_solve) report_solution_transfer(stats->read_solve_seconds);
}

void report_times(const solver_call *call)
{
    const phase_times &times = call->control->times;
    double sum = 0.0;
    report_line(report_times_title);
    report_line(report_times_rule);
    for (int64_t timer = 1; timer <= timer_count; ++timer) {
        if (!timer_runs(call->flags, timer)) continue;
        const double value = timer_value(times, timer);
        if (timer == timer_cgs)
            report_cgs_time(value, iparam_at(call->iparam, iparam_hybrid_result));
        else if (timer == timer_total) {
            report_time(report_time_additional, value - sum);
            report_time(report_time_total, value);
        } else {
            if (out_of_core(call)) report_transfer_seconds(call, timer);
            report_time(report_time_first + timer - 1, value);
        }
        sum += value;
    }
}

int64_t method_line(const control_block *control)
{
    if (control->cg_mode > 0) return report_hybrid;
    return control->sequential_analysis == 0 ? report_blas3 : report_level3;
}

void report_setup(const solver_call *call)
{
    const control_block *control = call->control;
    report_blank();
    report_line(report_statistics_title);
    report_line(report_statistics_rule);
    report_line(report_processors, control->nproc);
    report_line(method_line(control));
    report_blank();
}

/* A conjugate transpose has no line of its own: the line printed last stands again. */
int64_t system_line(const control_block *control)
{
    if (control->transpose_mode == 0) return report_system;
    return control->transpose_mode == 1 ? int64_t{report_system_transpose} : method_line(control);
}

void report_matrix(const solver_call *call)
{
    const double n = static_cast<double>(call->neqns), entries = static_cast<double>(call->nnz);
    report_line(system_line(call->control));
    report_line(report_equations, call->neqns);
    report_line(report_nonzeros_a, call->nnz);
    report_value(report_density, entries / (n * n) * 100.0);
    report_line(report_right_hand_sides, call->nb);
    report_blank();
}

void report_ordering(const control_block *control)
{
    report_line(report_factors);
    if (control->preprocessing == 0) {
        report_line(report_minimum_degree);
        report_line(report_reduction);
    }
    report_line(report_panel_columns, control->panel_columns);
    report_line(report_subgraphs, control->subgraphs);
    if (control->perm_mode > 0)
        report_line(report_input_permutation);
    else if (control->preprocessing == 1) {
        report_line(report_constrained);
        report_line(control->mode_one == 1 ? report_separator_ordered : report_separator_given);
    } else if (control->preprocessing == 2 || control->preprocessing == 3)
        report_line(report_metis);
}

void report_factor_figures(const solver_call *call)
{
    const control_block *control = call->control;
    report_line(report_supernodes, control->supernodes);
    report_line(report_largest_supernode, control->largest_supernode);
    report_line(report_nonzeros_l, control->nnz_l);
    report_line(report_nonzeros_u, control->nnz_u);
    report_line(report_nonzeros_both, control->nnz_l + control->nnz_u);
    if (call->ido_internal <= ido_analyse) return;
    const double gflop = control->times.gflop_count * 0.001;
    report_value(report_gflop, gflop);
    if (control->times.time_numfct > 0) report_value(report_gflop_rate, gflop / control->times.time_numfct);
}
} // namespace

void run_statistics(solver_call *call)
{
    call->neqns = call->control->neqns;
    report_blank();
    report_line(call->control->matrix_type);
    close_times(call);
    report_settings(call);
    report_scheme(call);
    report_blank();
    report_blank();
    if (call->ido_internal < 1) {
        report_cleaning(call);
        return;
    }
    report_summary(call->first_digit, call->last_digit);
    report_times(call);
    if (call->last_digit == phase_solve && out_of_core(call)) report_ooc_block(call->ooc);
    report_setup(call);
    report_matrix(call);
    report_ordering(call->control);
    report_factor_figures(call);
}
