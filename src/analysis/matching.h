/* Matching of rows to columns and the scale factors that go with it, for this room only. The work happens on logarithms, so the range of
   the values does not matter. */
#pragma once

#include <cstdint>

/* The present entries of a matrix by rows: entries start[i-1] .. start[i]-1 of column and cost. Entries that are zero or not a number are
   left out. cost is the logarithm of the magnitude with its sign turned, after scaling where the routine says so: large entries are
   cheap. Symmetric types hold both triangles. */
struct cost_rows {
    int64_t n;
    int64_t *start;  /* [n + 1] */
    int64_t *column; /* [start[n] - 1] */
    double *cost;    /* the same */
};

/* row_edge[i - 1] is the entry that row i is matched by, 0 none; column_row[j - 1] the row matched to column j, 0 none. */
struct row_matching {
    int64_t *row_edge, *column_row;
    int64_t count;
};

/* Match row i by its entry edge. */
inline void match_entry(const cost_rows &rows, row_matching *matching, int64_t i, int64_t edge)
{
    matching->row_edge[i - 1] = edge;
    matching->column_row[rows.column[edge - 1] - 1] = i;
}

/* Matching of largest cardinality and, among those, of least total cost when it covers all rows: shortest augmenting paths with dual
   variables (Duff and Koster 2001; Jonker and Volgenant 1987), begun from a cheap matching on tight entries. When the paths become long
   it begins again from better duals.
   out   matching; u[n], v[n]: cost - u(row) - v(column) >= 0, and 0 on matched entries when all rows are matched (to rounding)
   work[5 n] */
void shortest_path_matching(const cost_rows &rows, row_matching *matching, double *u, double *v, int64_t *work);

/* Bring the column duals v[n] near those of an optimal matching: auction with scaled eps (Bertsekas 1988), without keeping its matching.
   Any v is a valid start, so nothing depends on how far it comes; a bounded number of passes. work[2 n] */
void improve_duals(const cost_rows &rows, double *v, int64_t *work);

/* Scale factors of the equilibrated matrix in logarithms (Ruiz 2001): row_log[n], col_log[n] out, such that no scaled entry passes 1 and
   the largest of each row and column comes near it; cost becomes that of the scaled entries. */
void equilibrate_costs(const cost_rows &rows, double *row_log, double *col_log, double *work);

/* Matching of largest cardinality whose dearest entry costs at most log(10) more than it must: depth-first augmenting paths with lookahead
   (Pothen and Fan 1990) over the entries down to 1, 0.1, 0.01, ... in turn.
   work[5 n] */
void threshold_matching(const cost_rows &rows, row_matching *matching, int64_t *work);

/* Fill the columns left over with the rows left over, both ascending. */
void complete_matching(int64_t n, row_matching *matching);

/* exp of logarithms of scale factors, kept within 1e-300 .. 1e300. A constant is moved between rows and columns first, so that both spread
   about the same centre. symmetric: both become the square root of their product. */
void scale_from_logs(int64_t n, bool symmetric, double *row, double *col);
