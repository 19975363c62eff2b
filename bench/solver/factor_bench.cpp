/* Numeric factorization of positive definite matrices: rate as a fraction of this machine's dgemm, gain of the second thread, and CHOLMOD
   (its METIS ordering; supernodal, and simplicial for small ones) on the same matrix in the same run. Times are of refactorizations:
   structures stand, nothing symbolic is repeated. One thread is measured in processor time, so that neighbours on the machine weigh less;
   two threads need the clock, and are compared with one thread by the clock. */
#include <CLI/CLI.hpp>
#include <cholmod.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>

#include "dense/dense.h"
#include "factor_pipeline.h"
#include "generators.h"
#include "measure.h"

namespace
{

double processor_seconds()
{
    timespec t = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

/* ---- the peer ---- */
struct peer {
    cholmod_common common;
    cholmod_sparse *a;
    cholmod_factor *l;
};

/* CHOLMOD takes the lower triangle by columns: the upper one by rows is the same arrays. */
void open_peer(const market_matrix &lower, int supernodal, peer *p)
{
    cholmod_l_start(&p->common);
    p->common.nmethods = 1;
    p->common.method[0].ordering = CHOLMOD_METIS;
    p->common.supernodal = supernodal;
    const market_matrix upper = market_transpose(lower);
    const size_t n = static_cast<size_t>(upper.rows), entries = upper.ja.size();
    p->a = cholmod_l_allocate_sparse(n, n, entries, 1, 1, -1, CHOLMOD_REAL, &p->common);
    auto *start = static_cast<int64_t *>(p->a->p), *row = static_cast<int64_t *>(p->a->i);
    for (size_t i = 0; i <= n; ++i) start[i] = upper.ia[i] - 1;
    for (size_t i = 0; i < entries; ++i) {
        row[i] = upper.ja[i] - 1;
        static_cast<double *>(p->a->x)[i] = upper.value[i];
    }
    p->l = cholmod_l_analyze(p->a, &p->common);
}

void close_peer(peer *p)
{
    cholmod_l_free_factor(&p->l, &p->common);
    cholmod_l_free_sparse(&p->a, &p->common);
    cholmod_l_finish(&p->common);
}

/* ---- solution check ---- */
/* Largest |x - 1| for the right-hand side A * 1, by plain substitution with the factor. */
double solution_error(const market_matrix &lower, const factor_pipeline<double> &p)
{
    const market_matrix m = market_expand(lower);
    const size_t n = static_cast<size_t>(m.rows);
    std::vector<double> x(n);
    for (size_t k = 0; k < n; ++k) {
        const size_t i = static_cast<size_t>(p.perm[k] - 1);
        for (int64_t q = m.ia[i]; q < m.ia[i + 1]; ++q) x[k] += m.value[static_cast<size_t>(q - 1)];
    }
    const supernodal_structure &s = p.structure;
    for (int64_t pass = 0; pass < 2; ++pass)
        for (int64_t t = 1; t <= s.supernodes; ++t) {
            const int64_t number = pass == 0 ? t : s.supernodes + 1 - t;
            const int64_t rows = supernode_rows(s, number), columns = supernode_columns(s, number), first = s.xsuper[number - 1] - 1;
            const int64_t *list = supernode_row_list(s, number);
            const double *block = p.lnz.data() + (s.xlnz[first] - 1);
            for (int64_t u = 0; u < columns; ++u) {
                const int64_t c = pass == 0 ? u : columns - 1 - u;
                const double *column = block + c * rows;
                double &xc = x[static_cast<size_t>(first + c)];
                if (pass == 0) xc /= column[c];
                for (int64_t i = c + 1; i < rows; ++i) {
                    double &xi = x[static_cast<size_t>(list[i] - 1)];
                    if (pass == 0)
                        xi -= column[i] * xc;
                    else
                        xc -= column[i] * xi;
                }
                if (pass == 1) xc /= column[c];
            }
        }
    double worst = 0;
    for (const double v : x) worst = std::max(worst, std::fabs(v - 1));
    return worst;
}

/* ---- cases ---- */
struct bench_case {
    const char *name;
    bool small; /* also against the simplicial form */
    std::function<market_matrix()> make;
};

const std::vector<bench_case> cases = {
    {"elasticity 25^3", false, [] { return elasticity(25, 25, 25); }},
    {"27-point 40^3", false, [] { return grid_3d_27(40, 40, 40); }},
    {"7-point 50^3", false, [] { return grid_3d_7(50, 50, 50); }},
    {"2D 1000^2", false, [] { return grid_2d_5(1000, 1000); }},
    {"2D 300^2", false, [] { return grid_2d_5(300, 300); }},
    {"2D 10^2", true, [] { return grid_2d_5(10, 10); }},
    {"2D 30^2", true, [] { return grid_2d_5(30, 30); }},
    {"2D 45^2", true, [] { return grid_2d_5(45, 45); }},
    {"3D 8^3", true, [] { return grid_3d_7(8, 8, 8); }},
    {"3D 12^3", true, [] { return grid_3d_7(12, 12, 12); }},
    {"elasticity 5^3", true, [] { return elasticity(5, 5, 5); }},
    {"elasticity 8^3", true, [] { return elasticity(8, 8, 8); }},
};

struct timed {
    double seconds, cpu;
};

/* Medians of the competitors, taken in turn; small work is repeated until it fills two milliseconds. */
std::vector<timed> compete(int rounds, const std::vector<std::function<void()>> &works)
{
    std::vector<std::vector<timed>> all(works.size());
    std::vector<int> repeats;
    for (const auto &work : works) {
        work();
        const double start = bench_seconds();
        work();
        repeats.push_back(std::max(1, static_cast<int>(0.002 / std::max(bench_seconds() - start, 1e-7))));
    }
    for (int r = 0; r < rounds; ++r)
        for (size_t w = 0; w < works.size(); ++w) {
            const double wall = bench_seconds(), cpu = processor_seconds();
            for (int i = 0; i < repeats[w]; ++i) works[w]();
            all[w].push_back({(bench_seconds() - wall) / repeats[w], (processor_seconds() - cpu) / repeats[w]});
        }
    std::vector<timed> medians;
    for (auto &times : all) {
        std::sort(times.begin(), times.end(), [](const timed &x, const timed &y) { return x.seconds < y.seconds; });
        const double wall = times[times.size() / 2].seconds;
        std::sort(times.begin(), times.end(), [](const timed &x, const timed &y) { return x.cpu < y.cpu; });
        medians.push_back({wall, times[times.size() / 2].cpu});
    }
    return medians;
}

/* Operations a second of one thread, in processor time. */
double gemm_rate(int64_t n)
{
    const size_t entries = static_cast<size_t>(n * n);
    std::vector<double> a(entries, 1.0), b(entries, 0.5), c(entries, 0.0);
    const auto t = compete(5, {[&] { wkl_blas_gemm('N', 'T', n, n, n, -1.0, a.data(), n, b.data(), n, 1.0, c.data(), n); }});
    return 2.0 * static_cast<double>(n) * static_cast<double>(n) * static_cast<double>(n) / t[0].cpu;
}

bool run_case(const bench_case &one, int rounds, double limit, bench_table *table, std::vector<double> *ratios)
{
    const market_matrix matrix = one.make();
    factor_pipeline<double> single, double_level, two;
    pipeline_options options;
    const bool large = matrix.rows > 250000;
    options.panel_columns = 128;
    bool good = analyse(matrix, options, &single);
    options.threads = 2;
    options.panel_columns = large ? 112 : 80;
    good = good && analyse(matrix, options, &two);
    options.two_level = 1;
    options.panel_columns = large ? 112 : 64;
    good = good && analyse(matrix, options, &double_level);
    if (!good) {
        std::printf("%s: the analysis failed\n", one.name);
        return false;
    }
    peer p;
    open_peer(matrix, one.small ? CHOLMOD_SIMPLICIAL : CHOLMOD_SUPERNODAL, &p);
    auto factor = [](factor_pipeline<double> *x) { numeric_dispatch(&x->input, &x->result); };
    const auto t = compete(rounds, {[&] { factor(&single); }, [&] { cholmod_l_factorize(p.a, p.l, &p.common); }, [&] { factor(&two); },
                                    [&] { factor(&double_level); }});
    good = single.result.error == 0 && two.result.error == 0 && double_level.result.error == 0 && p.common.status == CHOLMOD_OK;
    const double error = std::max({solution_error(matrix, single), solution_error(matrix, two), solution_error(matrix, double_level)});
    const double operations = pipeline_operations(single) * 1e6, ratio = t[1].cpu / t[0].cpu;
    ratios->push_back(ratio);
    table->rows.push_back({one.name, std::to_string(matrix.rows), bench_number(static_cast<double>(single.structure.nnz_l) * 1e-6, 2),
                           bench_number(operations * 1e-9, 3), bench_number(t[0].cpu * 1e3, 3),
                           bench_number(operations / t[0].cpu / limit, 3), bench_number(t[1].cpu * 1e3, 3), bench_number(ratio, 2),
                           bench_number(t[0].seconds / t[2].seconds, 2), bench_number(t[0].seconds / t[3].seconds, 2),
                           bench_number(p.common.fl / t[1].cpu / limit, 3), bench_number(std::log10(error), 1)});
    close_peer(&p);
    return good;
}

} // namespace

int main(int argc, char **argv)
{
    std::string part, csv;
    int rounds = 5;
    CLI::App app("Numeric factorization beside dgemm and CHOLMOD", "factor_bench");
    app.add_option("-c,--case", part, "Only cases whose name holds this text");
    app.add_option("-r,--rounds", rounds, "Rounds of each measurement")->check(CLI::PositiveNumber);
    app.add_option("--csv", csv, "File for the table");
    CLI11_PARSE(app, argc, argv);
    const double limit = gemm_rate(1500);
    std::printf("dgemm %.2f Gflop/s, one thread\n", limit * 1e-9);
    bench_table table;
    table.head = {"case",       "n",     "Mentries",  "Gflop",       "ours ms",          "of dgemm",
                  "CHOLMOD ms", "ratio", "2 threads", "2 two-level", "CHOLMOD of dgemm", "log10 error"};
    std::vector<double> ratios;
    bool good = true;
    for (const bench_case &one : cases)
        if (std::strstr(one.name, part.c_str()) != nullptr) good = run_case(one, rounds, limit, &table, &ratios) && good;
    bench_print(table);
    if (!ratios.empty()) std::printf("geometric mean of the ratios %.3f\n", bench_geometric_mean(ratios));
    if (!csv.empty()) good = bench_write_csv(table, csv) && good;
    return good ? 0 : 1;
}
