/* The product against the solvers of others, every competitor in the same run: analysis, factorization, refactorization and solve, solves
   with one and with 32 vectors, backward error, entries of the factors, memory; with one thread and with two, each in a child of its own,
   so that every library sees its thread count in the environment from the start. Ratios are time of the best peer over ours: above 1 we
   are faster. Peers that were not there at configure time are left out.
   Usage: solver_bench [options], see --help. */
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "contest.h"
#include "generators.h"
#include "markdown.h"
#include "measure.h"

namespace
{
struct bench_case {
    const char *name;
    bench_group group;
    int64_t type;
    std::function<market_matrix()> make, make_quick; /* no quick one: left out there */
};

const char *group_name(int group)
{
    const char *names[] = {"definite", "indefinite", "unsymmetric", "complex symmetric", "network", "small definite"};
    return names[group];
}

market_matrix convection(int64_t side)
{
    return convection_3d(side, side, side, 1.0, difference::upwind);
}

std::vector<bench_case> all_cases()
{
    using enum bench_group;
    return {
        {"2D 5-point", definite, 2, [] { return grid_2d_5(1000, 1000); }, [] { return grid_2d_5(200, 200); }},
        {"3D 7-point", definite, 2, [] { return grid_3d_7(60, 60, 60); }, [] { return grid_3d_7(22, 22, 22); }},
        {"3D 27-point", definite, 2, [] { return grid_3d_27(40, 40, 40); }, [] { return grid_3d_27(17, 17, 17); }},
        {"elasticity", definite, 2, [] { return elasticity(25, 25, 25); }, [] { return elasticity(11, 11, 11); }},
        {"saddle point", indefinite, -2, [] { return saddle_point(100000); }, [] { return saddle_point(10000); }},
        {"27-point indefinite", indefinite, -2, [] { return grid_3d_27(35, 35, 35); }, [] { return grid_3d_27(14, 14, 14); }},
        {"convection", unsymmetric, 11, [] { return convection(45); }, [] { return convection(16); }},
        {"helmholtz", complex_symmetric, 6, [] { return helmholtz_3d(35, 35, 35); }, [] { return helmholtz_3d(14, 14, 14); }},
        {"circuit", network, 11, [] { return circuit(100000); }, [] { return circuit(10000); }},
        {"2D 10^2", small_definite, 2, [] { return grid_2d_5(10, 10); }, [] { return grid_2d_5(10, 10); }},
        {"elasticity 5^3", small_definite, 2, [] { return elasticity(5, 5, 5); }, [] { return elasticity(5, 5, 5); }},
        {"3D 8^3", small_definite, 2, [] { return grid_3d_7(8, 8, 8); }, [] { return grid_3d_7(8, 8, 8); }},
        {"2D 30^2", small_definite, 2, [] { return grid_2d_5(30, 30); }, [] { return grid_2d_5(30, 30); }},
        {"elasticity 8^3", small_definite, 2, [] { return elasticity(8, 8, 8); }, {}},
        {"3D 12^3", small_definite, 2, [] { return grid_3d_7(12, 12, 12); }, {}},
        {"2D 45^2", small_definite, 2, [] { return grid_2d_5(45, 45); }, [] { return grid_2d_5(45, 45); }},
    };
}

struct program_options {
    bool quick = false, definite = false;
    std::vector<std::string> files;
    std::string part, csv, into, records, probe, solvers, threads = "1,2";
    int rounds = 0, child_threads = 0;
};

/* A shift that makes about a third of the eigenvalues of the 27-point grid negative. */
void shift_if_indefinite(const bench_case &one, market_matrix *a)
{
    if (one.group != bench_group::indefinite || std::string(one.name) != "27-point indefinite") return;
    for (size_t i = 0; i < static_cast<size_t>(a->rows); ++i) a->value[static_cast<size_t>(a->ia[i + 1] - 2)] -= 25.3;
}

market_matrix case_matrix(const bench_case &one, bool quick)
{
    market_matrix matrix = quick ? one.make_quick() : one.make();
    shift_if_indefinite(one, &matrix);
    return matrix;
}

/* Starts this program again with one solver and one case, which the system ends when its time is over. True when it came through. */
bool probe_solver(const std::string &name, const char *solver, double seconds)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(static_cast<unsigned>(seconds) + 1);
        execl("/proc/self/exe", "solver_bench", "--probe", solver, "--case", name.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/* The other end of it. A solver that does not take the system is no reason to leave it out: the contest passes it over by itself. */
int run_probe(const program_options &program)
{
    for (const bench_case &one : all_cases()) {
        if (one.name != program.part) continue;
        const bench_system system = make_system(one.name, one.group, one.type, case_matrix(one, false));
        for (const competitor &c : competitors()) {
            solver_session session;
            if (c.name != program.probe || !c.open(system, {}, &session)) continue;
            return session.analyse() && session.factor() ? 0 : 1;
        }
    }
    return 0;
}

int run_child(const program_options &program)
{
    contest_options options;
    options.threads = program.child_threads;
    options.rounds = program.rounds != 0 ? program.rounds : program.quick ? 3 : 5;
    options.patience = program.quick ? 0.5 : 30;
    options.solvers = program.solvers;
    const machine_record machine = measure_machine(options.threads);
    std::vector<contest_record> records;
    for (const std::string &path : program.files) {
        market_matrix matrix;
        std::string error;
        if (!read_matrix_market(path, &matrix, &error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
        const std::string name = std::filesystem::path(path).stem().string();
        const bench_group group = matrix.rows < 5000 ? bench_group::small_definite : bench_group::definite;
        const auto measured = hold_contest(program.definite ? make_system(name, group, 2, matrix)
                                                            : make_system(name, bench_group::network, 11, market_expand(matrix)),
                                           options);
        records.insert(records.end(), measured.begin(), measured.end());
        if (!write_records(program.records, machine, records)) return 1;
    }
    for (const bench_case &one : all_cases()) {
        if (!program.files.empty() && program.part.empty()) break;
        if (std::string(one.name).find(program.part) == std::string::npos || (program.quick && !one.make_quick)) continue;
        if (!program.quick && one.group != bench_group::small_definite)
            options.affordable = [&](const char *solver, double seconds) { return probe_solver(one.name, solver, seconds); };
        else
            options.affordable = nullptr;
        const double start = bench_seconds();
        const auto measured = hold_contest(make_system(one.name, one.group, one.type, case_matrix(one, program.quick)), options);
        std::fprintf(stderr, "%s, threads %d: %.0f s\n", one.name, options.threads, bench_seconds() - start);
        records.insert(records.end(), measured.begin(), measured.end());
        if (!write_records(program.records, machine, records)) return 1; /* after each case: a crash loses one case only */
    }
    return 0;
}

/* Starts this program again with a thread count, and waits for it. */
bool run_with_threads(const program_options &program, const std::string &threads, const std::string &records)
{
    const pid_t child = fork();
    if (child == 0) {
        for (const char *name : {"OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "WKL_NUM_THREADS"}) setenv(name, threads.c_str(), 1);
        std::vector<std::string> words = {"solver_bench", "--child-threads", threads, "--records", records};
        const std::string rounds = std::to_string(program.rounds);
        if (program.quick) words.push_back("--quick");
        if (program.definite) words.push_back("--definite");
        if (!program.part.empty()) words.insert(words.end(), {"--case", program.part});
        if (!program.solvers.empty()) words.insert(words.end(), {"--solvers", program.solvers});
        for (const std::string &path : program.files) words.insert(words.end(), {"--file", path});
        if (program.rounds != 0) words.insert(words.end(), {"--rounds", rounds});
        std::vector<char *> arguments;
        for (std::string &word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        execv("/proc/self/exe", arguments.data());
        _exit(127);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/* ---- tables ---- */
using field = double contest_record::*;
struct column {
    const char *name;
    field value;
};
const std::vector<column> timed = {{"analysis", &contest_record::analysis},
                                   {"factor", &contest_record::factor},
                                   {"refactor+solve", &contest_record::refactor_solve},
                                   {"one vector", &contest_record::one_vector},
                                   {"32 vectors", &contest_record::many_vectors}};

bool is_peer(const contest_record &r)
{
    return r.solver != "ours" && r.solver != "ours, single";
}

std::vector<std::vector<contest_record>> by_case(const std::vector<contest_record> &records)
{
    std::vector<std::vector<contest_record>> cases;
    for (const contest_record &r : records) {
        if (cases.empty() || cases.back()[0].name != r.name || cases.back()[0].threads != r.threads) cases.emplace_back();
        cases.back().push_back(r);
    }
    return cases;
}

/* All figures as they were measured. */
bench_table measured_table(const std::vector<contest_record> &records, const machine_record &machine)
{
    bench_table table;
    table.head = {"case", "solver", "threads", "n"};
    for (const column &c : timed) table.head.push_back(std::string(c.name) + " ms");
    for (const char *more :
         {"of dgemm", "of bandwidth", "32 to 1", "backward error", "Mentries", "memory MB", "memory of need", "with analysis"})
        table.head.push_back(more);
    for (const contest_record &r : records) {
        std::vector<std::string> row = {r.name, r.solver == "ours, single" ? "ours single" : r.solver, std::to_string(r.threads),
                                        bench_number(r.n, 0)};
        for (const column &c : timed) row.push_back(r.good != 0 ? bench_number(1e3 * (r.*c.value), 3) : "-");
        const bool symmetric = r.group != static_cast<int>(bench_group::unsymmetric) && r.group != static_cast<int>(bench_group::network);
        char error[32];
        std::snprintf(error, sizeof error, "%.1e", r.backward_error);
        row.push_back(bench_number(r.operations / r.factor / r.gemm, 3));
        row.push_back(bench_number((symmetric ? 2 : 1) * r.factor_bytes / r.one_vector / machine.bandwidth, 2));
        row.push_back(bench_number(r.many_vectors / r.one_vector, 2));
        row.push_back(error);
        row.push_back(bench_number(r.entries * 1e-6, 3));
        row.push_back(bench_number(r.memory * 1e-6, 1));
        const double need = r.factor_bytes + r.input_bytes;
        row.push_back(bench_number(r.memory / need, 2));
        row.push_back(r.analysis_bytes > 0 ? bench_number(r.memory / (need + r.analysis_bytes), 2) : "-");
        table.rows.push_back(row);
    }
    return table;
}

/* Best peer over ours, for each piece of work; geometric means over the groups. */
bench_table ratio_table(const std::vector<contest_record> &records)
{
    bench_table table;
    table.head = {"case", "group", "threads"};
    for (const column &c : timed) table.head.insert(table.head.end(), {c.name, "peer"});
    table.head.push_back("single");
    std::map<std::pair<int, int>, std::vector<std::vector<double>>> sums;
    for (const auto &one : by_case(records)) {
        const contest_record &own = one[0];
        std::vector<std::string> row = {own.name, group_name(own.group), std::to_string(own.threads)};
        auto &sum = sums[{own.group, own.threads}];
        sum.resize(timed.size());
        for (size_t t = 0; t < timed.size(); ++t) {
            const contest_record *best = nullptr;
            for (const contest_record &r : one)
                if (is_peer(r) && r.good != 0 && (best == nullptr || r.*timed[t].value < best->*timed[t].value)) best = &r;
            const bool comparable = best != nullptr && own.good != 0 && own.solver == "ours";
            const double ratio = comparable ? best->*timed[t].value / own.*timed[t].value : 0;
            if (comparable) sum[t].push_back(ratio);
            row.push_back(comparable ? bench_number(ratio, 2) : "-");
            row.push_back(comparable ? best->solver : "-");
        }
        const auto single = std::find_if(one.begin(), one.end(), [](const contest_record &r) { return r.solver == "ours, single"; });
        row.push_back(single != one.end() && single->good != 0 && own.good != 0 ? bench_number(own.factor / single->factor, 2) : "-");
        table.rows.push_back(row);
    }
    for (const auto &[key, sum] : sums) {
        std::vector<std::string> row = {"geometric mean", group_name(key.first), std::to_string(key.second)};
        for (const auto &ratios : sum) row.insert(row.end(), {bench_number(bench_geometric_mean(ratios), 2), ""});
        row.push_back("");
        table.rows.push_back(row);
    }
    return table;
}

/* Gain of the second thread, ours and the peers'; that of dgemm is the machine's. */
bench_table gain_table(const std::vector<contest_record> &records)
{
    bench_table table{{"case", "solver", "analysis", "factor", "refactor+solve", "one vector", "32 vectors", "dgemm"}, {}};
    for (const contest_record &two : records) {
        if (two.threads == 1 || two.good == 0) continue;
        for (const contest_record &one : records) {
            if (one.threads != 1 || one.good == 0 || one.name != two.name || one.solver != two.solver) continue;
            std::vector<std::string> row = {two.name, two.solver == "ours, single" ? "ours single" : two.solver};
            for (const column &c : timed) row.push_back(bench_number(one.*c.value / two.*c.value, 2));
            row.push_back(bench_number(two.gemm / one.gemm, 2));
            table.rows.push_back(row);
        }
    }
    return table;
}

int run_parent(const program_options &program)
{
    std::vector<contest_record> all;
    bool good = true;
    bench_table figures;
    std::string limits = program.quick ? "Small sizes (--quick).\n" : "";
    if (!program.solvers.empty()) limits += "Only these solvers: " + program.solvers + ".\n";
    for (const char *threads : {"1", "2"}) {
        if (program.threads.find(threads) == std::string::npos) continue;
        char records[] = "/tmp/solver_bench.XXXXXX";
        const int file = mkstemp(records);
        if (file < 0) return 1;
        close(file);
        std::vector<contest_record> measured;
        machine_record machine;
        good = run_with_threads(program, threads, records) && good;
        good = read_records(records, &machine, &measured) && good;
        unlink(records);
        std::printf("threads %s: dgemm %.1f Gflop/s, triad %.1f GB/s\n", threads, machine.gemm * 1e-9, machine.bandwidth * 1e-9);
        const bench_table part = measured_table(measured, machine);
        figures.head = part.head;
        figures.rows.insert(figures.rows.end(), part.rows.begin(), part.rows.end());
        all.insert(all.end(), measured.begin(), measured.end());
    }
    if (all.empty()) return 1;
    std::printf("%s", limits.c_str());
    bench_print(figures);
    std::printf("\nTime of the best peer over ours (single: our double over our single precision, factorization)\n");
    const bench_table ratios = ratio_table(all), gains = gain_table(all);
    bench_print(ratios);
    if (!gains.rows.empty()) {
        std::printf("\nOne thread over two\n");
        bench_print(gains);
    }
    if (!program.csv.empty())
        good = bench_write_csv(figures, program.csv + ".csv") && bench_write_csv(ratios, program.csv + "_ratios.csv") &&
               bench_write_csv(gains, program.csv + "_gains.csv") && good;
    if (!program.into.empty())
        good = markdown_replace(program.into, "ratios", machine_line() + limits + "\n" + markdown_table(ratios)) &&
               markdown_replace(program.into, "gains", markdown_table(gains)) &&
               markdown_replace(program.into, "figures", markdown_table(figures)) && good;
    return good ? 0 : 1;
}
} // namespace

int main(int argc, char **argv)
{
    program_options program;
    CLI::App app("Speed of the solver beside those of others", "solver_bench");
    app.add_flag("-q,--quick", program.quick, "Small sizes, under a minute");
    app.add_option("-c,--case", program.part, "Only cases whose name holds this text");
    app.add_option("-f,--file", program.files, "Real matrices, Matrix Market; alone, or before the cases of --case");
    app.add_flag("-d,--definite", program.definite, "The files are symmetric positive definite; otherwise taken as general");
    app.add_option("-s,--solvers", program.solvers, "Only solvers whose names hold one of these texts, separated by commas");
    app.add_option("-r,--rounds", program.rounds, "Rounds of each measurement");
    app.add_option("-t,--threads", program.threads, "1, 2 or 1,2");
    app.add_option("--csv", program.csv, "Write <name>.csv, <name>_ratios.csv and <name>_gains.csv");
    app.add_option("--into", program.into, "Document whose tables are replaced");
    app.add_option("--child-threads", program.child_threads, "Internal")->group("");
    app.add_option("--probe", program.probe, "Internal")->group("");
    app.add_option("--records", program.records, "Internal")->group("");
    CLI11_PARSE(app, argc, argv);
    if (!program.probe.empty()) return run_probe(program);
    return program.child_threads != 0 ? run_child(program) : run_parent(program);
}
