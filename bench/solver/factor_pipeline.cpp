#include "factor_pipeline.h"

#include <algorithm>
#include <type_traits>

#include "measure.h"

namespace
{

size_t size_from(int64_t count)
{
    return static_cast<size_t>(std::max<int64_t>(count, 1));
}

bool is_symmetric(int64_t type)
{
    return type == 2 || type == -2 || type == 4 || type == -4 || type == 6;
}

template <typename value_t>
void take_matrix(const market_matrix &matrix, factor_pipeline<value_t> *p)
{
    const bool triangle = matrix.symmetry != market_symmetry::general;
    const market_matrix m = !is_symmetric(p->options.matrix_type) ? market_expand(matrix) : triangle ? market_transpose(matrix) : matrix;
    p->ia = m.ia;
    p->ja = m.ja;
    const bool pairs = m.field == market_field::complex;
    for (size_t i = 0; i < m.ja.size(); ++i) {
        using real_t = typename factor_real<value_t>::type;
        const auto re = static_cast<real_t>(m.value[pairs ? 2 * i : i]);
        if constexpr (std::is_floating_point_v<value_t>)
            p->a.push_back(re);
        else
            p->a.push_back(value_t(re, static_cast<real_t>(pairs ? m.value[2 * i + 1] : 0)));
    }
}

template <typename value_t>
void set_control(int64_t n, factor_pipeline<value_t> *p)
{
    control_block &c = p->control;
    const pipeline_options &o = p->options;
    c.neqns = n;
    c.neqns_plus_one = n + 1;
    c.matrix_type = o.matrix_type;
    c.element_words = std::is_floating_point_v<value_t> ? 1 : 2;
    c.preprocessing = 2;
    c.nproc = o.threads;
    c.panel_columns = o.panel_columns;
    c.symmetric_structure = is_symmetric(o.matrix_type) ? 1 : 0;
    c.perm_mode = o.perm != nullptr ? 1 : 0;
    c.integer_limit = integer_limit_default;
    c.two_level = o.two_level;
    c.sequential_analysis = o.threads == 1 ? 1 : 0;
    c.nnz_a = static_cast<int64_t>(p->ja.size());
    c.adjacency_size = 2 * c.nnz_a;
    int64_t domains = 1;
    while (domains < o.threads && 2 * domains <= n) domains *= 2;
    c.domains = domains;
    c.ordering_slack = std::max<int64_t>(1024, 4 * domains + 4);
    c.ordering_work_size = n * (4 * o.threads + 8) + c.ordering_slack + 2 * c.adjacency_size + 64;
}

template <typename value_t>
bool order_matrix(factor_pipeline<value_t> *p)
{
    const int64_t n = p->control.neqns;
    for (word_list *w : {&p->perm, &p->invp, &p->parent, &p->colcnt, &p->snode, &p->xsuper, &p->xlnz, &p->xunz, &p->xadj, &p->scratch_a,
                         &p->scratch_b, &p->separator_tail})
        w->resize(size_from(n + 1));
    p->domain_table.resize(size_from(p->control.ordering_slack));
    p->lists.resize(size_from((2 * p->options.threads + 3) * n + 5));
    p->work.resize(size_from(p->control.ordering_work_size));
    p->adj.resize(size_from(2 * p->control.nnz_a + n));
    ordering_arrays arrays = {};
    arrays.perm = p->perm.data();
    arrays.invp = p->invp.data();
    arrays.parent = p->parent.data();
    arrays.colcnt = p->colcnt.data();
    arrays.xsuper = p->xsuper.data();
    arrays.snode = p->snode.data();
    arrays.xadj = p->xadj.data();
    arrays.adj = p->adj.data();
    arrays.domain_table = p->domain_table.data();
    arrays.lists = p->lists.data();
    arrays.work = p->work.data();
    arrays.scratch_a = p->scratch_a.data();
    arrays.scratch_b = p->scratch_b.data();
    arrays.ordering_lists_size = static_cast<int64_t>(p->lists.size());
    arrays.ordering_work_size = static_cast<int64_t>(p->work.size());
    arrays.ordering_slack = p->control.ordering_slack;
    if (p->options.perm != nullptr) p->caller_perm.assign(p->options.perm, p->options.perm + n);
    return reorder_step(&p->control, &p->times, p->ia.data(), p->ja.data(), p->caller_perm.data(), &arrays) == 0;
}

template <typename value_t>
bool factor_pattern(factor_pipeline<value_t> *p)
{
    const int64_t supernodes = p->control.supernodes;
    for (word_list *w :
         {&p->xlindx, &p->sparent, &p->update_count, &p->sentinel_a, &p->sentinel_b, &p->work_order, &p->ready_start, &p->status})
        w->resize(size_from(supernodes + 1));
    p->lindx.resize(size_from(p->control.lindx_size));
    symbolic_arrays arrays = {};
    arrays.perm = p->perm.data();
    arrays.invp = p->invp.data();
    arrays.xadj = p->xadj.data();
    arrays.adj = p->adj.data();
    arrays.xsuper = p->xsuper.data();
    arrays.snode = p->snode.data();
    arrays.parent = p->parent.data();
    arrays.colcnt = p->colcnt.data();
    arrays.lindx = p->lindx.data();
    arrays.xlindx = p->xlindx.data();
    arrays.xlnz = p->xlnz.data();
    arrays.xunz = p->xunz.data();
    arrays.sparent = p->sparent.data();
    arrays.work_order = p->work_order.data();
    arrays.update_count = p->update_count.data();
    arrays.separator_tail = p->separator_tail.data();
    arrays.sentinel_a = p->sentinel_a.data();
    arrays.sentinel_b = p->sentinel_b.data();
    arrays.domain_table = p->domain_table.data();
    arrays.lists = p->lists.data();
    arrays.work = p->work.data();
    arrays.scratch = p->scratch_a.data();
    if (symbolic_step(&p->control, &p->times, &arrays) != 0) return false;
    p->structure = {p->control.neqns,  supernodes,       p->perm.data(),   p->invp.data(),     p->xsuper.data(),
                    p->snode.data(),   p->xlindx.data(), p->lindx.data(),  p->xlnz.data(),     p->xunz.data(),
                    p->sparent.data(), p->control.nnz_l, p->control.nnz_u, p->control.domains, p->domain_table.data()};
    return true;
}

template <typename value_t>
void list_work(factor_pipeline<value_t> *p)
{
    control_block &c = p->control;
    if (c.sequential_analysis != 0) return;
    work_list_sizes(&c, &p->structure);
    const int64_t starts = c.two_level != 0 ? (c.domains + 1) * c.supernodes + 1 : c.supernodes + 1;
    p->list_start.resize(size_from(starts));
    for (word_list *w : {&p->list_source, &p->list_rows}) w->resize(size_from(c.task_count + 1));
    for (word_list *w : {&p->ready_source, &p->ready_rows}) w->resize(size_from(c.parallel_list_size + 1));
    p->cursor.resize(size_from((c.domains + 1) * c.task_bound + c.supernodes + 2));
    work_list_arrays arrays = {p->work_order.data(), p->ready_start.data(), p->list_start.data(),  p->list_source.data(),
                               p->list_rows.data(),  p->cursor.data(),      p->update_count.data()};
    build_work_lists(&c, &p->structure, &arrays);
    p->work_list = {c.two_level,           first_top_supernode(&p->structure),
                    p->work_order.data(),  p->list_start.data(),
                    p->list_source.data(), p->list_rows.data(),
                    p->ready_start.data(), p->ready_source.data(),
                    p->ready_rows.data(),  p->status.data(),
                    p->cursor.data(),      p->cursor[0],
                    p->cursor.data() + 1};
}

template <typename value_t>
void map_values(factor_pipeline<value_t> *p)
{
    const int64_t n = p->control.neqns, room = p->control.nnz_a + n;
    for (word_list *w : {&p->start_l, &p->start_u}) w->resize(size_from(n + 1));
    for (word_list *w : {&p->dest_l, &p->src_l, &p->dest_u, &p->src_u}) w->resize(size_from(room));
    p->map = {p->start_l.data(), p->dest_l.data(), p->src_l.data(), nullptr, p->start_u.data(),
              p->dest_u.data(),  p->src_u.data(),  nullptr,         0,       0};
    const position_map_input in = {p->options.matrix_type,
                                   p->control.symmetric_structure,
                                   0,
                                   p->ia.data(),
                                   p->ja.data(),
                                   nullptr,
                                   &p->structure,
                                   p->scratch_a.data(),
                                   p->scratch_b.data(),
                                   p->separator_tail.data(),
                                   p->work.data(),
                                   p->options.threads};
    build_position_map(&in, &p->map);
}

template <typename value_t>
void make_store(factor_pipeline<value_t> *p)
{
    const int64_t n = p->control.neqns, threads = p->options.threads;
    p->lnz.resize(size_from(p->structure.nnz_l));
    p->unz.resize(size_from(p->structure.nnz_u));
    p->pivots.resize(size_from(n));
    p->thread_rows.resize(size_from(p->structure.supernodes + (2 * threads + 1) * n));
    const int64_t entries = std::max(p->control.update_size, n);
    p->buffer.resize(size_from(entries * threads));
    p->store = {p->lnz.data(), p->unz.data(), p->pivots.data(), nullptr, nullptr, nullptr};
    factor_input<value_t> &in = p->input;
    in.matrix_type = p->options.matrix_type;
    in.nproc = threads;
    in.single_thread = threads == 1 ? 1 : 0;
    in.pivoting = 1;
    in.perturbation_exponent = is_symmetric(p->options.matrix_type) ? 8 : 13;
    in.nnz_a = p->control.nnz_a;
    in.a = p->a.data();
    in.structure = &p->structure;
    in.map = &p->map;
    in.lists = &p->work_list;
    in.store = &p->store;
    in.thread_rows = p->thread_rows.data();
    in.update_buffer = p->buffer.data();
    in.buffer_entries = entries;
    in.entries_per_thread = factor_entries_per_thread;
}

} // namespace

template <typename value_t>
bool analyse(const market_matrix &matrix, const pipeline_options &options, factor_pipeline<value_t> *p)
{
    p->options = options;
    take_matrix(matrix, p);
    set_control(matrix.rows, p);
    const double start = bench_seconds();
    if (!order_matrix(p) || !factor_pattern(p)) return false;
    list_work(p);
    map_values(p);
    p->analysis_seconds = bench_seconds() - start;
    make_store(p);
    return true;
}

template bool analyse<double>(const market_matrix &, const pipeline_options &, factor_pipeline<double> *);
template bool analyse<float>(const market_matrix &, const pipeline_options &, factor_pipeline<float> *);
template bool analyse<std::complex<double>>(const market_matrix &, const pipeline_options &, factor_pipeline<std::complex<double>> *);
template bool analyse<std::complex<float>>(const market_matrix &, const pipeline_options &, factor_pipeline<std::complex<float>> *);
