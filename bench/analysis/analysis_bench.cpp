/* The analysis beside its peers in one run. Time of a whole ido 11 of the product against METIS_NodeND of the packaged library on the same
   graph, entries of L against the same and against CHOLMOD's choice, the share of ido 11 that is not ordering, and memory: what ido 11
   reports in iparam(15), and the peak of the process above its start, which the partitioner's own work belongs to. Ratios below 1 are in
   our favour. Usage: analysis_bench [options] [case ...], see --help. */
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "analysis/analysis.h"
#include "analysis/symbolic.h"
#include "generators.h"
#include "measure.h"
#include "node_ordering.h"
#include "product_analysis.h"

#ifdef WKL_BENCH_CHOLMOD
#include <cholmod.h>
#endif

using words = std::vector<int64_t>;

struct input : bench_input {
    std::string name;
    analysis_memory one, two; /* with one and with two threads */
};

/* Everything one analysis reads and writes, sized once so that only the work is timed. */
struct analysis {
    control_block control;
    phase_times times;
    words perm, invp, parent, colcnt, xsuper, snode, xadj, adj, table, lists, work, scratch_a, scratch_b;
    words lindx, xlindx, xlnz, xunz, sparent, work_order, update_count, separator_tail, sentinel_a, sentinel_b;
    double seconds, ordering_seconds;
};

static size_t size_of(int64_t count)
{
    return static_cast<size_t>(count);
}

static input make_input(const std::string &name, const market_matrix &m)
{
    const bool general = m.symmetry == market_symmetry::general;
    const market_matrix rows = general ? m : market_transpose(m);
    input in{{m.rows, general ? 11 : 2, {1}, {}}, name, {}, {}};
    for (int64_t i = 1; i <= in.n; ++i) {
        if (!general) in.ja.push_back(i);
        for (int64_t p = rows.ia[size_of(i - 1)]; p < rows.ia[size_of(i)]; ++p) {
            if (general || rows.ja[size_of(p - 1)] != i) in.ja.push_back(rows.ja[size_of(p - 1)]);
        }
        in.ia.push_back(static_cast<int64_t>(in.ja.size()) + 1);
    }
    return in;
}

static void size_arrays(const input &in, int64_t threads, analysis *a)
{
    const int64_t n = in.n, entries = in.ia.back() - 1;
    for (words *w : {&a->perm, &a->invp, &a->parent, &a->colcnt, &a->xsuper, &a->snode, &a->xadj, &a->scratch_a, &a->scratch_b, &a->xlindx,
                     &a->xlnz, &a->xunz, &a->sparent, &a->work_order, &a->update_count, &a->separator_tail, &a->sentinel_a, &a->sentinel_b})
        w->assign(size_of(n + 2), 0);
    a->adj.assign(size_of(n + 2 * entries + 1), 0);
    a->table.assign(1025, 0);
    a->lists.assign(size_of((2 * threads + 3) * n + 6), 0);
    a->work.assign(size_of(4 * n + 2 * entries + 2 * n * threads + 16), 0);
}

/* Ordering and symbolic step with the given thread count. */
static void analyse(const input &in, int64_t threads, analysis *a)
{
    const double start = bench_seconds();
    a->control = {};
    a->times = {};
    control_block &c = a->control;
    c.neqns = in.n;
    c.neqns_plus_one = in.n + 1;
    c.matrix_type = in.type;
    c.symmetric_structure = in.type == 2 ? 1 : 0;
    c.preprocessing = threads > 1 ? 3 : 2;
    c.nproc = threads;
    c.sequential_analysis = threads == 1 ? 1 : 0;
    c.panel_columns = 80;
    c.mode_one = 1;
    c.integer_limit = integer_limit_default;
    for (c.domains = 1; c.domains < threads;) c.domains *= 2;
    ordering_arrays o{};
    o.perm = a->perm.data();
    o.invp = a->invp.data();
    o.parent = a->parent.data();
    o.colcnt = a->colcnt.data();
    o.xsuper = a->xsuper.data();
    o.snode = a->snode.data();
    o.xadj = a->xadj.data();
    o.adj = a->adj.data();
    o.domain_table = a->table.data();
    o.lists = a->lists.data();
    o.work = a->work.data();
    o.scratch_a = a->scratch_a.data();
    o.scratch_b = a->scratch_b.data();
    o.ordering_lists_size = static_cast<int64_t>(a->lists.size());
    o.ordering_work_size = static_cast<int64_t>(a->work.size());
    o.ordering_slack = 1024;
    int64_t code = reorder_step(&c, &a->times, in.ia.data(), in.ja.data(), nullptr, &o);
    if (a->lindx.size() < size_of(c.lindx_size + 1)) a->lindx.resize(size_of(c.lindx_size + 1));
    symbolic_arrays s = {a->perm.data(),           a->invp.data(),       a->xadj.data(),       a->adj.data(),        a->xsuper.data(),
                         a->snode.data(),          a->parent.data(),     a->colcnt.data(),     a->lindx.data(),      a->xlindx.data(),
                         a->xlnz.data(),           a->xunz.data(),       a->sparent.data(),    a->work_order.data(), a->update_count.data(),
                         a->separator_tail.data(), a->sentinel_a.data(), a->sentinel_b.data(), a->table.data(),      a->lists.data(),
                         a->work.data(),           a->scratch_a.data()};
    if (code == 0) code = symbolic_step(&c, &a->times, &s);
    if (code != 0) std::fprintf(stderr, "%s: analysis failed with %lld\n", in.name.c_str(), static_cast<long long>(code));
    a->seconds = bench_seconds() - start;
    a->ordering_seconds = a->times.time_reorder;
}

/* The order that the packaged partitioner gives to the graph of an analysis. */
struct peer_order {
    words perm, invp;
    std::function<bool()> run; /* empty: the machine has none */
};

static void prepare_peer(const analysis &a, peer_order *peer)
{
    words start, neighbour;
    for (int64_t i = 0; i <= a.control.neqns; ++i) start.push_back(a.xadj[size_of(i)] - 1);
    for (int64_t p = 0; p < start.back(); ++p) neighbour.push_back(a.adj[size_of(p)] - 1);
    peer->perm.resize(size_of(a.control.neqns));
    peer->invp.resize(size_of(a.control.neqns));
    peer->run = packaged_node_ordering(a.control.neqns, start.data(), neighbour.data(), peer->perm.data(), peer->invp.data());
}

/* Entries of L and fundamental supernodes for the order of the peer. */
static int64_t count_entries(const peer_order &peer, const analysis &a, int64_t *supernodes)
{
    const int64_t n = a.control.neqns;
    words perm, invp, parent(size_of(n)), counts(size_of(n)), work(size_of(5 * n)), snode(size_of(n)), xsuper(size_of(n + 1));
    for (const int64_t v : peer.perm) perm.push_back(v + 1);
    for (const int64_t v : peer.invp) invp.push_back(v + 1);
    const int64_t table[4] = {1, n - 1, n, n};
    int64_t rows = 0, longest = 0;
    elimination_tree(n, 1, 1, table, a.xadj.data(), a.adj.data(), perm.data(), invp.data(), parent.data(), work.data());
    const int64_t entries =
        column_counts(n, a.xadj.data(), a.adj.data(), perm.data(), invp.data(), parent.data(), counts.data(), work.data());
    *supernodes = supernode_partition(n, parent.data(), counts.data(), n, snode.data(), xsuper.data(), &rows, &longest);
    return entries;
}

#ifdef WKL_BENCH_CHOLMOD
/* Entries of L with CHOLMOD's own choice of ordering. */
static double cholmod_entries(const analysis &a)
{
    const int64_t n = a.control.neqns;
    cholmod_common common;
    cholmod_l_start(&common);
    cholmod_sparse *s =
        cholmod_l_allocate_sparse(size_of(n), size_of(n), size_of(a.xadj[size_of(n)] - 1 + n), 0, 1, 1, CHOLMOD_PATTERN, &common);
    SuiteSparse_long *start = static_cast<SuiteSparse_long *>(s->p), *row = static_cast<SuiteSparse_long *>(s->i), at = 0;
    for (int64_t j = 1; j <= n; ++j) {
        start[j - 1] = at;
        row[at++] = j - 1;
        for (int64_t p = a.xadj[size_of(j - 1)]; p < a.xadj[size_of(j)]; ++p) {
            if (a.adj[size_of(p - 1)] < j) row[at++] = a.adj[size_of(p - 1)] - 1;
        }
    }
    start[n] = at;
    cholmod_factor *f = cholmod_l_analyze(s, &common);
    const double entries = common.lnz;
    cholmod_l_free_factor(&f, &common);
    cholmod_l_free_sparse(&s, &common);
    cholmod_l_finish(&common);
    return entries;
}
#endif

struct generated_case {
    const char *group, *name;
    std::function<market_matrix()> make;
};

static const std::vector<generated_case> generated_cases = {
    {"generated", "grid 2D 5-point 1000^2", [] { return grid_2d_5(1000, 1000); }},
    {"generated", "grid 3D 7-point 60^3", [] { return grid_3d_7(60, 60, 60); }},
    {"generated", "grid 3D 27-point 40^3", [] { return grid_3d_27(40, 40, 40); }},
    {"generated", "elasticity 25^3 x 3", [] { return elasticity(25, 25, 25); }},
    {"generated", "convection 45^3", [] { return convection_3d(45, 45, 45, 1.0, difference::upwind); }},
    {"generated", "saddle point 100,000", [] { return saddle_point(100000); }},
    {"small", "2D 10^2", [] { return grid_2d_5(10, 10); }},
    {"small", "2D 30^2", [] { return grid_2d_5(30, 30); }},
    {"small", "2D 45^2", [] { return grid_2d_5(45, 45); }},
    {"small", "3D 8^3", [] { return grid_3d_7(8, 8, 8); }},
    {"small", "27-point 17^3", [] { return grid_3d_27(17, 17, 17); }},
    {"small", "elasticity 5^3", [] { return elasticity(5, 5, 5); }},
    {"small", "elasticity 10^3", [] { return elasticity(10, 10, 10); }},
    {"small", "circuit 5000", [] { return circuit(5000); }},
};

static bool add_generated(const std::string &word, std::vector<input> *inputs)
{
    bool found = false;
    for (const generated_case &c : generated_cases) {
        if (word != c.group && std::string(c.name).find(word) == std::string::npos) continue;
        inputs->push_back(make_input(c.name, c.make()));
        found = true;
    }
    return found;
}

struct sums {
    std::vector<double> fill, time_one, time_two;
};

static double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

static std::string megabytes(double kilobytes)
{
    return kilobytes < 0 ? "-" : bench_number(kilobytes / 1024, 1);
}

static void add_row(const input &in, int runs, bench_table *table, sums *total)
{
    analysis one, two;
    peer_order peer;
    size_arrays(in, 1, &one);
    size_arrays(in, 2, &two);
    analyse(in, 1, &one);
    prepare_peer(one, &peer);
    const std::function<void()> other = [&] {
        if (peer.run) peer.run();
    };
    std::vector<double> ordering[2];
    const std::vector<double> seconds =
        bench_medians(runs, {[&] { product_analysis(in, 1, nullptr); },
                             [&] { analyse(in, 1, &one), ordering[0].push_back(one.ordering_seconds); }, other});
    /* apart from the above: a team of threads that comes and goes costs more than a small analysis */
    const std::vector<double> seconds_two =
        bench_medians(runs, {[&] { product_analysis(in, 2, nullptr); },
                             [&] { analyse(in, 2, &two), ordering[1].push_back(two.ordering_seconds); }, other});
    double peer_entries = std::nan(""), peer_width = std::nan(""), chosen = std::nan("");
    const double peer_seconds = peer.run ? seconds[2] : std::nan(""), peer_seconds_two = peer.run ? seconds_two[2] : std::nan("");
    if (peer.run) {
        int64_t supernodes = 1;
        peer_entries = static_cast<double>(count_entries(peer, one, &supernodes));
        peer_width = static_cast<double>(in.n) / static_cast<double>(supernodes);
    }
#ifdef WKL_BENCH_CHOLMOD
    chosen = cholmod_entries(one);
#endif
    const double entries = static_cast<double>(one.control.l_entries), entries_two = static_cast<double>(two.control.l_entries);
    total->fill.push_back(entries / peer_entries);
    total->time_one.push_back(seconds[0] / peer_seconds);
    total->time_two.push_back(seconds_two[0] / peer_seconds_two);
    table->rows.push_back({in.name, std::to_string(in.n), std::to_string(one.control.l_entries), bench_number(entries / peer_entries, 3),
                           bench_number(entries_two / peer_entries, 3), bench_number(entries / chosen, 3),
                           bench_number(1e3 * peer_seconds, 2), bench_number(seconds[0] / peer_seconds, 3),
                           bench_number(seconds_two[0] / peer_seconds_two, 3), bench_number(1.0 - median(ordering[0]) / seconds[0], 3),
                           bench_number(1.0 - median(ordering[1]) / seconds_two[0], 3),
                           bench_number(static_cast<double>(in.n) / static_cast<double>(one.control.supernodes), 2),
                           bench_number(peer_width, 2), megabytes(in.one.reported), megabytes(in.one.peak), megabytes(in.two.peak)});
}

int main(int argc, char **argv)
{
    std::string csv;
    int runs = 3;
    std::vector<std::string> words_of_cases;
    CLI::App app("The analysis beside the packaged partitioner and CHOLMOD", "analysis_bench");
    app.add_option("cases", words_of_cases,
                   "generated (the default), small, part of the name of a generated matrix, or a square matrix in a Matrix Market file");
    app.add_option("-r,--runs", runs, "Runs of each measurement")->check(CLI::PositiveNumber);
    app.add_option("--csv", csv, "File that gets the table");
    CLI11_PARSE(app, argc, argv);
    std::vector<input> inputs;
    for (const std::string &word : words_of_cases) {
        market_matrix m;
        std::string error;
        if (add_generated(word, &inputs)) continue;
        if (!read_matrix_market(word, &m, &error))
            std::fprintf(stderr, "%s\n", error.c_str());
        else if (m.rows == m.columns)
            inputs.push_back(make_input(word.substr(word.rfind('/') + 1), m));
    }
    if (inputs.empty() && !words_of_cases.empty()) return 1;
    if (inputs.empty()) add_generated("generated", &inputs);
    for (input &in : inputs) { /* all of them before the first parallel region of this process */
        in.one = product_memory(in, 1);
        in.two = product_memory(in, 2);
    }
    bench_table table{{"matrix", "n", "nnz(L)", "L/metis 1t", "L/metis 2t", "L/cholmod", "metis ms", "time 1t", "time 2t", "rest 1t",
                       "rest 2t", "width", "metis width", "iparam(15) MB", "peak MB 1t", "peak MB 2t"},
                      {}};
    sums total;
    for (const input &in : inputs) add_row(in, runs, &table, &total);
    bench_print(table);
    std::printf("geometric means: nnz(L) %.3f, time with one thread %.3f, with two %.3f of METIS_NodeND\n",
                bench_geometric_mean(total.fill), bench_geometric_mean(total.time_one), bench_geometric_mean(total.time_two));
    if (!csv.empty() && !bench_write_csv(table, csv)) return 1;
    return 0;
}
