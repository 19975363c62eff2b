/* An ordering that puts the rows a caller marked last, so that a later solve for those unknowns alone runs over the end of the factors.
   The other rows are ordered by an analysis of their own part of the pattern, on a private handle. */
#include "service/service.h"
#include "solver/control.h"

namespace
{
/* Work of one run; every array is owned here and released by release(). Numbers are 1-based. */
struct partial_order {
    int64_t n, free_rows, base;
    const int64_t *ia, *ja;
    const int64_t *marks;     /* the caller's perm on entry */
    int64_t *row_map;         /* [n] given row -> place with the marked rows last */
    int64_t *given_row;       /* [n] its inverse */
    int64_t *sub_order;       /* [n] ordering of the free rows */
    int64_t *sub_ia, *sub_ja; /* pattern over the free rows, columns ascending, every diagonal entry present */
    double *sub_values;       /* ones */
};

int64_t *allocate_words(int64_t count)
{
    const int64_t words = count < 1 ? 1 : count;
    return words > INT64_MAX / 16 ? nullptr : static_cast<int64_t *>(service_alloc_direct(8 * static_cast<uint64_t>(words), 128));
}

void release(partial_order *order)
{
    service_free_direct(order->row_map);
    service_free_direct(order->given_row);
    service_free_direct(order->sub_order);
    service_free_direct(order->sub_ia);
    service_free_direct(order->sub_ja);
    service_free_direct(order->sub_values);
}

/* Free rows to the first places and marked rows to the last, each in their own order. */
void map_rows(partial_order *order)
{
    order->free_rows = 0;
    for (int64_t i = 0; i < order->n; ++i) order->free_rows += order->marks[i] == 0 ? 1 : 0;
    int64_t next_free = 0, next_marked = order->free_rows;
    for (int64_t i = 0; i < order->n; ++i) {
        const int64_t place = order->marks[i] == 0 ? next_free++ : next_marked++;
        order->row_map[i] = place + 1;
        order->given_row[place] = i + 1;
    }
}

/* Put column into the sorted row ja[start..end-1] unless it is there; returns the new end. */
int64_t insert_column(int64_t *ja, int64_t start, int64_t end, int64_t column)
{
    int64_t place = end;
    while (place > start && ja[place - 1] > column) --place;
    if (place > start && ja[place - 1] == column) return end;
    for (int64_t p = end; p > place; --p) ja[p] = ja[p - 1];
    ja[place] = column;
    return end + 1;
}

/* The pattern over the free rows. Columns that are out of range are left to the checks of the call proper. */
void reduce_pattern(partial_order *order)
{
    int64_t next = 0;
    for (int64_t place = 0; place < order->free_rows; ++place) {
        const int64_t row = order->given_row[place] - 1, start = next;
        order->sub_ia[place] = start + 1;
        next = insert_column(order->sub_ja, start, next, place + 1);
        for (int64_t p = order->ia[row] - order->base; p < order->ia[row + 1] - order->base; ++p) {
            const int64_t column = order->ja[p] - order->base;
            if (column < 0 || column >= order->n || order->row_map[column] > order->free_rows) continue;
            next = insert_column(order->sub_ja, start, next, order->row_map[column]);
        }
    }
    order->sub_ia[order->free_rows] = next + 1;
    for (int64_t p = 0; p < next; ++p) order->sub_values[p] = 1.0;
}

bool make_arrays(partial_order *order)
{
    const int64_t n = order->n, entries = order->ia[n] - order->base + n;
    order->row_map = allocate_words(n);
    order->given_row = allocate_words(n);
    order->sub_order = allocate_words(n);
    order->sub_ia = allocate_words(n + 1);
    order->sub_ja = allocate_words(entries);
    order->sub_values = reinterpret_cast<double *>(allocate_words(entries));
    return order->row_map != nullptr && order->given_row != nullptr && order->sub_order != nullptr && order->sub_ia != nullptr &&
           order->sub_ja != nullptr && order->sub_values != nullptr;
}

/* Ordering of the reduced pattern; the analysis stops behind its ordering stage. */
int64_t order_free_rows(partial_order *order, const int64_t *callers_iparam)
{
    void *handle[64] = {};
    int64_t iparam[iparam_count];
    for (int64_t i = 0; i < iparam_count; ++i) iparam[i] = callers_iparam[i];
    iparam_at(iparam, iparam_zero_based) = 0;
    iparam_at(iparam, iparam_matching) = iparam_at(iparam, iparam_scaling) = 0;
    iparam_at(iparam, iparam_single_precision) = 0;
    solver_call call{};
    call.handle = handle;
    call.max_fac_store = call.matrix_number = call.nb = 1;
    call.matrix_type = 11;
    call.ido = ido_analyse;
    call.neqns = order->free_rows;
    call.a = order->sub_values;
    call.ia = order->sub_ia;
    call.ja = order->sub_ja;
    call.perm = order->sub_order;
    call.iparam = iparam;
    call.real_bytes = 8;
    phase_driver(&call);
    const int64_t error = call.error < 0 ? call.error : 0;
    solver_call clean{};
    clean.handle = handle;
    clean.ido = ido_release_all;
    clean.iparam = iparam;
    phase_driver(&clean);
    return error;
}

/* What the request costs the caller's parameters: this path always orders by nested dissection. */
void take_over_parameters(int64_t *iparam)
{
    iparam_at(iparam, iparam_use_defaults) = 1;
    iparam_at(iparam, iparam_preprocessing) = 2;
    iparam_at(iparam, iparam_perm_mode) = 2;
    iparam_at(iparam, iparam_refinement_request) = 0;
    iparam_at(iparam, iparam_matrix_checker) = 0;
    iparam_at(iparam, iparam_partial_window) = partial_stop_after_ordering;
    solver_thread_count(&iparam_at(iparam, iparam_threads));
}

void compose(const partial_order *order, int64_t *perm)
{
    for (int64_t i = 0; i < order->n; ++i) {
        const int64_t place = i < order->free_rows ? order->sub_order[i] : i + 1;
        perm[i] = order->given_row[place - 1] - (1 - order->base);
    }
}

/* Row pointers that rise from the base. */
bool readable(int64_t n, const int64_t *ia, int64_t base)
{
    for (int64_t i = 0; i < n; ++i) {
        if (ia[i + 1] < ia[i]) return false;
    }
    return ia[0] == base;
}
} // namespace

void partial_solve_ordering(int64_t n, int64_t *iparam, const int64_t *ja, const int64_t *ia, int64_t *perm, int64_t *error)
{
    partial_order order{};
    order.n = n;
    order.base = iparam_at(iparam, iparam_zero_based) != 0 ? 0 : 1;
    order.ia = ia;
    order.ja = ja;
    order.marks = perm;
    *error = error_none;
    if (n < 1 || ia == nullptr || ja == nullptr || !readable(n, ia, order.base)) return; /* the call proper refuses it with words */
    if (perm == nullptr) {
        *error = error_input;
        return;
    }
    *error = error_memory;
    if (make_arrays(&order)) {
        map_rows(&order);
        reduce_pattern(&order);
        const int64_t checker = iparam_at(iparam, iparam_matrix_checker);
        take_over_parameters(iparam);
        *error = order_free_rows(&order, iparam);
        iparam_at(iparam, iparam_matrix_checker) = checker;
        if (*error == error_none) {
            iparam_at(iparam, iparam_perm_mode) = 1;
            iparam_at(iparam, iparam_partial_window) = n - order.free_rows;
            compose(&order, perm);
        }
    }
    release(&order);
}
