#include "solver/control.h"

namespace
{
/* The last finding of a scan: the place, and the two values that do not fit. All 1-based. */
struct finding {
    bool found;
    int64_t place, left, right;
};

/* Types with a full diagonal by nature: no row of theirs may be empty. */
bool needs_entry_in_every_row(int64_t matrix_type)
{
    return matrix_type >= 1 && matrix_type <= 4;
}

finding scan_row_pointers(int64_t matrix_type, int64_t n, const int64_t *ia)
{
    const bool no_empty_row = needs_entry_in_every_row(matrix_type);
    finding last{};
    if (ia[0] != 1) last = {true, 1, ia[0], ia[1]};
    for (int64_t i = 1; i <= n; ++i) {
        if (ia[i] < ia[i - 1] || (no_empty_row && ia[i] == ia[i - 1])) last = {true, i, ia[i - 1], ia[i]};
    }
    return last;
}

finding scan_column_range(int64_t n, int64_t nnz, const int64_t *ja)
{
    finding last{};
    for (int64_t p = 1; p <= nnz; ++p) {
        if (ja[p - 1] < 1 || ja[p - 1] > n) last = {true, p, ja[p - 1], n};
    }
    return last;
}

finding scan_row_starts(int64_t n, const int64_t *ia, const int64_t *ja)
{
    finding last{};
    for (int64_t i = 1; i <= n; ++i) {
        const int64_t start = ia[i - 1];
        if (start < ia[i] && ja[start - 1] < i) last = {true, i, start, ja[start - 1]};
    }
    return last;
}

finding scan_column_order(int64_t n, const int64_t *ia, const int64_t *ja)
{
    finding last{};
    for (int64_t i = 1; i <= n; ++i) {
        for (int64_t p = ia[i - 1]; p < ia[i] - 1; ++p) {
            if (ja[p - 1] >= ja[p]) last = {true, p, ja[p - 1], ja[p]};
        }
    }
    return last;
}

int64_t report(const finding &last, int64_t code, int64_t *iparam)
{
    if (!last.found) return code_none;
    iparam_at(iparam, iparam_partial_solve) = last.place;
    iparam_at(iparam, iparam_check_left) = last.left;
    iparam_at(iparam, iparam_check_right) = last.right;
    return code;
}
} // namespace

/* The scans run in this order because each relies on what the earlier ones made sure of; within a scan the last finding stands. */
int64_t check_matrix(int64_t matrix_type, int64_t n, const int64_t *ia, const int64_t *ja, int64_t *iparam)
{
    int64_t code = report(scan_row_pointers(matrix_type, n, ia), code_row_pointers, iparam);
    if (code == code_none) code = report(scan_column_range(n, ia[n] - 1, ja), code_column_range, iparam);
    const bool symmetric = matrix_type < 0 || matrix_type % 2 == 0;
    if (code == code_none && symmetric) code = report(scan_row_starts(n, ia, ja), code_below_diagonal, iparam);
    if (code == code_none) code = report(scan_column_order(n, ia, ja), code_column_order, iparam);
    return code;
}
