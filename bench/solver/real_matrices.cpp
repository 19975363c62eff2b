/* All matrices of a folder, with the types and settings of the command-line host: backward error without and with refinement and with
   larger perturbations, perturbed pivots, inertia, entries of the factors and time, beside the solvers of others in the same run. Each
   matrix is solved in a child process with a time limit, so that one bad case cannot take the others along. Usage: real_matrices folder
   [--into document.md] [--csv file], see --help. */
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>

#include "markdown.h"
#include "measure.h"
#include "peers.h"

namespace
{
struct outcome {
    bool done = false;
    double error = 0, seconds = 0;
    solver_facts facts;
};

double processor_seconds()
{
    timespec t = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

/* Right-hand side A times ones. Time: analysis, factorization and solve, the least of the rounds. */
outcome solve_once(const bench_system &system, solver_opener open, const solver_settings &settings, int rounds)
{
    outcome result;
    result.seconds = 1e30;
    const size_t entries = static_cast<size_t>(system.whole.rows) * system.words();
    std::vector<double> ones(entries, 0.0), b(entries), x(entries, 0.0);
    for (size_t k = 0; k < entries; k += system.words()) ones[k] = 1.0;
    system_product(system, ones.data(), b.data(), 1);
    for (int r = 0; r < rounds; ++r) {
        solver_session session;
        if (!open(system, settings, &session)) return result;
        const double start = processor_seconds();
        result.done = session.analyse() && session.factor() && session.solve(b.data(), x.data(), 1);
        result.seconds = std::min(result.seconds, processor_seconds() - start);
        result.facts = session.facts();
        if (result.seconds > 2) break;
    }
    result.error = system_backward_error(system, x.data(), b.data(), 1);
    return result;
}

/* ---- what the host does with a file ---- */
bool has_positive_diagonal(const market_matrix &a)
{
    const size_t words = a.field == market_field::complex ? 2 : 1;
    for (int64_t i = 1; i <= a.rows; ++i) {
        bool positive = false;
        for (auto p = static_cast<size_t>(a.ia[static_cast<size_t>(i) - 1] - 1); p < static_cast<size_t>(a.ia[static_cast<size_t>(i)] - 1);
             ++p)
            positive |= a.ja[p] == i && a.value[words * p] > 0;
        if (!positive) return false;
    }
    return true;
}

int64_t first_type(const market_matrix &a)
{
    const bool is_complex = a.field == market_field::complex;
    if (a.symmetry == market_symmetry::hermitian) return has_positive_diagonal(a) ? 4 : -4;
    if (a.symmetry == market_symmetry::symmetric) return is_complex ? 6 : has_positive_diagonal(a) ? 2 : -2;
    return is_complex ? 13 : 11;
}

std::string scientific(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.0e", value);
    return text;
}

std::string error_and_time(const outcome &o)
{
    if (!o.done) return "error " + std::to_string(o.facts.error);
    return scientific(o.error) + " / " + bench_number(1e3 * o.seconds, 2);
}

/* Solvers that stand in the table beside ours. */
bool has_column(const std::string &solver)
{
    return solver != "ours" && solver != "simplicial" && solver != "Eigen";
}

using cell_taker = std::function<void(const std::string &)>;

/* Hands the cells of a row out one by one, so that those before a crash or the end of the time stay. */
void make_row(const std::string &name, const market_matrix &a, int rounds, const cell_taker &take)
{
    const solver_settings plain{}, refined{.refine = 2}, careful{.refine = 2, .exponent = 8};
    int64_t type = first_type(a);
    bench_system system = make_system(name, bench_group::network, type, a);
    outcome own = solve_once(system, open_own, plain, rounds);
    if (!own.done && own.facts.error == -4 && (type == 2 || type == 4)) { /* not definite after all */
        type = -type;
        system = make_system(name, bench_group::network, type, a);
        own = solve_once(system, open_own, plain, rounds);
    }
    const solver_facts &f = own.facts;
    const bool has_inertia = type % 2 == 0 && type != 6 && own.done;
    take(std::to_string(a.rows));
    take(std::to_string(type));
    take(own.done ? std::to_string(f.perturbed_pivots) : "");
    take(has_inertia ? std::to_string(f.positive_pivots) + "+ " + std::to_string(f.negative_pivots) + "-" : "");
    take(own.done && f.entries > 0 ? bench_number(f.entries, 0) : "");
    take(error_and_time(own));
    take(error_and_time(solve_once(system, open_own, refined, rounds)));
    take(error_and_time(solve_once(system, open_own, careful, rounds)));
    const bool is_complex = system.is_complex();
    const bench_system general = make_system(name, bench_group::network, is_complex ? 13 : 11, system.whole);
    for (const competitor &c : competitors()) {
        const std::string peer = c.name;
        if (!has_column(peer)) continue;
        const bool symmetric_solver = peer == "CHOLMOD" || peer == "MUMPS";
        const bool fits = symmetric_solver ? peer == "MUMPS" || type == 2 || type == 4 : peer != "SuperLU" || !is_complex;
        take(fits ? error_and_time(solve_once(symmetric_solver ? system : general, c.open, refined, rounds)) : "");
    }
}

/* The row of one file, made by a child; the pipe carries the cells, separated by tabs. */
std::vector<std::string> row_from_child(const std::string &path, int rounds, unsigned patience)
{
    const std::string name = std::filesystem::path(path).filename().string();
    int ends[2];
    if (pipe(ends) != 0) return {name, "no pipe"};
    const pid_t child = fork();
    if (child == 0) {
        alarm(patience);
        const cell_taker take = [&](const std::string &cell) {
            const std::string text = cell + "\t";
            if (write(ends[1], text.data(), text.size()) < 0) _exit(1);
        };
        market_matrix a;
        std::string error;
        if (!read_matrix_market(path, &a, &error))
            take("not read");
        else if (a.rows != a.columns)
            take("not square");
        else
            make_row(name, a, rounds, take);
        _exit(0);
    }
    close(ends[1]);
    std::string text = name + "\t";
    char piece[512];
    for (ssize_t got; child > 0 && (got = read(ends[0], piece, sizeof piece)) > 0;) text.append(piece, static_cast<size_t>(got));
    close(ends[0]);
    int status = 0;
    if (child > 0) waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) text += WTERMSIG(status) == SIGALRM ? "out of time\t" : "signal " + std::to_string(WTERMSIG(status)) + "\t";
    std::vector<std::string> row;
    for (size_t begin = 0, end; (end = text.find('\t', begin)) != std::string::npos; begin = end + 1)
        row.push_back(text.substr(begin, end - begin));
    return row;
}

std::vector<std::string> files_of(const std::string &folder)
{
    std::vector<std::string> files;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        const std::string path = entry.path().string();
        if (path.ends_with(".mtx") || path.ends_with(".mtx.gz")) files.push_back(path);
    }
    std::sort(files.begin(), files.end());
    return files;
}
} // namespace

int main(int argc, char **argv)
{
    std::string folder, part, into, csv;
    int rounds = 3;
    unsigned patience = 120;
    CLI::App app("Backward errors, pivots and times on real matrices, beside the solvers of others", "real_matrices");
    app.add_option("folder", folder, "Where the Matrix Market files are")->required()->check(CLI::ExistingDirectory);
    app.add_option("-c,--case", part, "Only files whose name holds this text");
    app.add_option("-r,--rounds", rounds, "Rounds, of which the fastest counts");
    app.add_option("--patience", patience, "Seconds for one matrix");
    app.add_option("--into", into, "Document whose table is replaced");
    app.add_option("--csv", csv, "File for the table");
    CLI11_PARSE(app, argc, argv);
    for (const char *name : {"OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "WKL_NUM_THREADS"}) {
        if (getenv(name) != nullptr) continue; /* the libraries read them when they are loaded: start again */
        for (const char *each : {"OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "WKL_NUM_THREADS"}) setenv(each, "1", 0);
        execv("/proc/self/exe", argv);
        return 1;
    }
    bench_table table{{"matrix", "n", "type", "perturbed", "inertia", "entries", "ours", "ours refined", "ours careful"}, {}};
    for (const competitor &c : competitors())
        if (has_column(c.name)) table.head.push_back(c.name);
    for (const std::string &path : files_of(folder)) {
        if (path.find(part) == std::string::npos) continue;
        std::vector<std::string> row = row_from_child(path, rounds, patience);
        row.resize(table.head.size());
        table.rows.push_back(row);
    }
    bench_print(table);
    bool good = csv.empty() || bench_write_csv(table, csv);
    if (!into.empty()) good = markdown_replace(into, "matrices", machine_line() + "\n" + markdown_table(table)) && good;
    return good ? 0 : 1;
}
