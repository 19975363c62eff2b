/* Words for a failed call. What is printed for which code is data: see the tables. */
#include "service/message_numbers.h"
#include "service/service.h"
#include "solver/control.h"

namespace
{
/* The figures that a text may hold. */
enum class figure {
    none,
    ido,
    ido_internal,
    max_fac_store,
    stored_max_fac_store,
    matrix_number,
    matrix_type,
    stored_matrix_type,
    neqns,
    stored_neqns,
    nnz,
    stored_nnz,
    nb,
    overwrite_rhs,
    preprocessing,
    threads,
    last_row_pointer,
    check_place,
    check_left,
    check_right,
    internal_code
};

struct input_text {
    int64_t code;
    int32_t message, zero_based_message;
    figure value[3];
    bool recap;
};

constexpr input_text input_texts[] = {
    {code_ido, message_error_ido_out_of_bounds, message_error_ido_out_of_bounds, {figure::ido}, true},
    {code_max_fac_store,
     message_error_max_fac_store,
     message_error_max_fac_store,
     {figure::max_fac_store, figure::stored_max_fac_store},
     true},
    {code_matrix_number_above,
     message_error_matrix_number_above,
     message_error_matrix_number_above,
     {figure::max_fac_store, figure::matrix_number},
     true},
    {code_matrix_number_below,
     message_error_matrix_number_below,
     message_error_matrix_number_below,
     {figure::matrix_number, figure::ido},
     true},
    {code_matrix_type_changed,
     message_error_matrix_type_changed,
     message_error_matrix_type_changed,
     {figure::matrix_type, figure::stored_matrix_type},
     true},
    {code_neqns_changed, message_error_neqns_changed, message_error_neqns_changed, {figure::neqns, figure::stored_neqns}, true},
    {code_neqns, message_error_neqns_below_one, message_error_neqns_below_one, {figure::neqns}, true},
    {code_entry_count, message_error_entry_count, message_error_entry_count_zero_based, {figure::nnz, figure::stored_nnz}, true},
    {code_nb, message_error_nb, message_error_nb, {figure::nb, figure::ido}, true},
    {code_overwrite_rhs, message_error_iparam_6, message_error_iparam_6_zero_based, {figure::overwrite_rhs}, true},
    {code_preprocessing, message_error_preprocessing, message_error_preprocessing, {figure::preprocessing}, true},
    {code_thread_count, message_error_thread_count, message_error_thread_count, {figure::threads}, false},
    {code_nproc, message_error_nproc, message_error_nproc, {figure::threads, figure::threads}, false},
    {code_matrix_type, message_error_matrix_type_out_of_bounds, message_error_matrix_type_out_of_bounds, {figure::matrix_type}, true},
    {code_empty_arrays, message_error_empty_arrays, message_error_empty_arrays, {}, false},
    {code_invalid_sizes, message_error_invalid_sizes, message_error_invalid_sizes, {figure::neqns, figure::last_row_pointer}, false},
    {code_working_arrays, message_error_working_arrays, message_error_working_arrays, {}, false},
    {code_perm, message_error_unclassified, message_error_unclassified, {}, false},
    {code_wrong_step, message_error_wrong_step, message_error_wrong_step, {figure::ido_internal}, false},
    {code_row_pointers,
     message_error_row_pointers,
     message_error_row_pointers_zero_based,
     {figure::check_place, figure::check_left, figure::check_right},
     false},
    {code_column_range,
     message_error_column_range,
     message_error_column_range_zero_based,
     {figure::check_place, figure::check_left, figure::check_right},
     false},
    {code_below_diagonal,
     message_error_below_diagonal,
     message_error_below_diagonal_zero_based,
     {figure::check_place, figure::check_left, figure::check_right},
     false},
    {code_column_order,
     message_error_column_order,
     message_error_column_order_zero_based,
     {figure::check_place, figure::check_left, figure::check_right},
     false},
    {code_two_level_ooc, message_error_two_level_ooc, message_error_two_level_ooc, {}, false},
    {code_sequential_ooc, message_error_sequential_ooc, message_error_sequential_ooc, {}, false},
    {code_clean_number, message_error_wrong_matrix_number_clean, message_error_wrong_matrix_number_clean, {figure::matrix_number}, false},
    {code_only_symbolic, message_error_only_symbolic_diagonal, message_error_only_symbolic_diagonal, {figure::ido}, false},
    {code_initialization, message_error_ido_and_initialization, message_error_ido_and_initialization, {}, false},
    {code_ido_below_minus_one, message_error_ido_below_minus_one, message_error_ido_below_minus_one, {}, false},
    {code_clean_impossible, message_error_clean_impossible, message_error_clean_impossible, {}, false},
};

/* Names of the memory stages; that of stage -2 stands first. */
constexpr int64_t first_memory_stage_row = 1;

bool zero_based(const solver_call *call)
{
    return iparam_at(call->iparam, iparam_zero_based) != 0;
}

/* A position in the caller's base. */
int64_t in_base(const solver_call *call, int64_t value)
{
    return zero_based(call) && value > INT64_MIN ? value - 1 : value;
}

int64_t last_row_pointer(const solver_call *call)
{
    return call->ia != nullptr && call->neqns >= 0 ? call->ia[call->neqns] : 0;
}

int64_t figure_value(const solver_call *call, figure which)
{
    switch (which) {
    case figure::ido:
        return call->ido;
    case figure::ido_internal:
        return call->ido_internal;
    case figure::max_fac_store:
        return call->max_fac_store;
    case figure::stored_max_fac_store:
        return call->stored_max_fac_store;
    case figure::matrix_number:
        return call->matrix_number;
    case figure::matrix_type:
        return call->matrix_type;
    case figure::stored_matrix_type:
        return call->stored_matrix_type;
    case figure::neqns:
        return call->neqns;
    case figure::stored_neqns:
        return call->stored_neqns;
    case figure::nnz:
        return in_base(call, call->nnz);
    case figure::stored_nnz:
        return in_base(call, call->stored_nnz);
    case figure::nb:
        return call->nb;
    case figure::overwrite_rhs:
        return iparam_at(call->iparam, iparam_overwrite_rhs);
    case figure::preprocessing:
        return call->control->preprocessing;
    case figure::threads:
        return iparam_at(call->iparam, iparam_threads);
    case figure::last_row_pointer:
        return last_row_pointer(call);
    case figure::check_place:
        return in_base(call, iparam_at(call->iparam, iparam_partial_solve));
    case figure::check_left:
        return in_base(call, iparam_at(call->iparam, iparam_check_left));
    case figure::check_right:
        return in_base(call, iparam_at(call->iparam, iparam_check_right));
    case figure::internal_code:
        return call->internal_code;
    case figure::none:
        break;
    }
    return 0;
}

/* Print a text of the solver with up to three counts. */
void print(int32_t message, int32_t count = 0, int64_t first = 0, int64_t second = 0, int64_t third = 0)
{
    service_print_message(0, message_wide(message), count, first, second, third);
}

void print_unknown(int64_t number)
{
    print(message_internationalization, 1, number);
}

void print_recap(const solver_call *call)
{
    print(message_recap_inconsistent, 2, call->internal_code, call->max_fac_store);
    print(message_recap_matrix, 2, call->matrix_number, call->matrix_type);
    print(message_recap_sizes, 2, call->ido, call->neqns);
    print(zero_based(call) ? message_recap_entries_zero_based : message_recap_entries, 2, in_base(call, call->nnz), call->nb);
}

void print_input_text(const solver_call *call, const input_text &text)
{
    int32_t count = 0;
    int64_t value[3] = {};
    for (const figure which : text.value) {
        if (which != figure::none) value[count++] = figure_value(call, which);
    }
    print(zero_based(call) ? text.zero_based_message : text.message, count, value[0], value[1], value[2]);
    if (text.code == code_initialization) print(message_error_contradiction, 1, call->ido);
    if (text.recap) print_recap(call);
}

void report_input(solver_call *call)
{
    if (call->internal_code < 0) {
        print(message_error_diagonal_row, 1, -call->internal_code);
        call->error = error_diagonal;
        return;
    }
    for (const input_text &text : input_texts) {
        if (text.code == call->internal_code) print_input_text(call, text);
    }
}

/* Both figures are kilobytes, also where the words say bytes. */
void report_memory(const solver_call *call)
{
    const int64_t stage = call->memory_stage, wanted = kilobytes(call->memory_bytes);
    const int64_t current = call->state != nullptr ? call->state->memory_current : 0;
    if (stage == memory_global_structure)
        print(message_memory_allocate_global_structure, 1, wanted);
    else if (stage >= memory_matching && stage <= memory_refinement_work) {
        print(static_cast<int32_t>(message_memory_allocate_global_structure + first_memory_stage_row + stage - 1), 1, wanted);
    } else
        print_unknown(stage);
    const bool fits = call->memory_bytes < INT64_MAX - current;
    print(message_memory_total, 1, kilobytes(fits ? call->memory_bytes + current : INT64_MAX));
}

void report_numeric(const solver_call *call)
{
    const int64_t hybrid = iparam_at(call->iparam, iparam_hybrid_result);
    if (call->internal_code == code_hybrid || hybrid < 0) {
        print(zero_based(call) ? message_error_cgs_zero_based : message_error_cgs, 1, hybrid);
        return;
    }
    print(message_error_refinement);
    print(message_error_contraction_rate);
}

void report_ooc_memory(const solver_call *call)
{
    const ooc_state *ooc = call->ooc;
    print(message_error_class_ooc_memory, 1, error_ooc_memory);
    print(message_error_refinement);
    service_print_message(0, message_error_ooc_minimum, 2, (ooc->ooc_min_kb + ooc->ooc_solve_kb) / 1024,
                          static_cast<int32_t>(ooc->max_core_size));
}

/* The class of the error with its internal code; two classes stay silent here. */
void print_class(const solver_call *call)
{
    const int64_t error = call->error;
    if (error == error_factorization || error == error_ooc_memory) return;
    if (error < error_ooc_data || error > error_input) {
        print_unknown(100 - error);
        return;
    }
    const bool matrix = error == error_input && call->internal_code >= code_row_pointers && call->internal_code <= code_matrix_last;
    const int64_t row = matrix ? int64_t{message_error_class_matrix} : message_error_class_sequence - error - 1;
    print(static_cast<int32_t>(row), 1, call->internal_code);
}
} // namespace

void error_report(solver_call *call)
{
    print_class(call);
    switch (call->error) {
    case error_input:
        report_input(call);
        break;
    case error_memory:
        report_memory(call);
        break;
    case error_reordering:
    case error_overflow:
        print(message_error_reordering);
        break;
    case error_factorization:
        report_numeric(call);
        break;
    case error_unclassified:
        print(message_error_unclassified);
        break;
    case error_preordering:
        print(message_error_preordering, 2, -call->internal_code, call->neqns);
        print(message_error_structure_singular);
        break;
    case error_ooc_memory:
        report_ooc_memory(call);
        break;
    default:
        break;
    }
}
