/* Ordering, symbolic factorization, work lists and position map of one matrix, and its numeric factorization, without the shell of the
   product: what is timed here is the factorization alone. */
#pragma once

#include <complex>
#include <vector>

#include "analysis/analysis.h"
#include "factor/factor.h"
#include "matrix_market.h"

template <typename value_t>
struct factor_real {
    using type = value_t;
};
template <typename real_t>
struct factor_real<std::complex<real_t>> {
    using type = real_t;
};

using word_list = std::vector<int64_t>;

struct pipeline_options {
    int64_t matrix_type = 2;
    int64_t threads = 1;
    int64_t two_level = 0; /* 0 single level, 1, 2 */
    int64_t panel_columns = 128;
    const int64_t *perm = nullptr; /* 1-based ordering to use instead of one of our own */
};

template <typename value_t>
struct factor_pipeline {
    pipeline_options options;
    control_block control = {};
    phase_times times = {};
    word_list ia, ja;
    std::vector<value_t> a;
    word_list perm, invp, parent, colcnt, xsuper, snode, xadj, adj, domain_table, lists, work, scratch_a, scratch_b;
    word_list lindx, xlindx, xlnz, xunz, sparent, work_order, update_count, separator_tail, sentinel_a, sentinel_b, caller_perm;
    word_list ready_start, list_start, list_source, list_rows, ready_source, ready_rows, status, cursor;
    word_list start_l, dest_l, src_l, start_u, dest_u, src_u, thread_rows, pivots;
    std::vector<value_t> lnz, unz, buffer;
    supernodal_structure structure = {};
    work_lists work_list = {};
    position_map map = {};
    factor_store<value_t> store = {};
    factor_input<value_t> input = {};
    factor_result result = {};
    double analysis_seconds = 0;
};

/* in matrix: a triangle for the symmetric types, everything otherwise. Returns false when the analysis fails. */
template <typename value_t>
bool analyse(const market_matrix &matrix, const pipeline_options &options, factor_pipeline<value_t> *p);

/* Millions of real operations of one factorization. */
template <typename value_t>
double pipeline_operations(const factor_pipeline<value_t> &p)
{
    return operation_count(&p.structure, p.options.matrix_type);
}
