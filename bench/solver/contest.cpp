#include "contest.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>

#include "measure.h"

extern "C" void dgemm_(const char *, const char *, const int64_t *, const int64_t *, const int64_t *, const double *, const double *,
                       const int64_t *, const double *, const int64_t *, const double *, double *, const int64_t *, size_t, size_t);

namespace
{
double contest_seconds(int threads)
{
    if (threads > 1) return bench_seconds();
    timespec t = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

struct contender {
    solver_session session;
    contest_record record;
    bool alive = true;
    double first_factor = 0, first_both = 0; /* seconds; both: with the analysis */
    std::vector<double> x;
};

using work_of = std::function<bool(contender *)>;

double median_of(std::vector<double> t)
{
    std::sort(t.begin(), t.end());
    return t.size() % 2 != 0 ? t[t.size() / 2] : (t[t.size() / 2 - 1] + t[t.size() / 2]) / 2;
}

/* Operations a second of one large product on all threads. */
struct gemm_probe {
    static constexpr int64_t n = 1500;
    int threads;
    std::vector<double> a = std::vector<double>(n * n, 0.5), b = a, c = a, seconds = {};

    void run()
    {
        const double one = 1.0, zero = 0.0, start = contest_seconds(threads);
        dgemm_("N", "T", &n, &n, &n, &one, a.data(), &n, b.data(), &n, &zero, c.data(), &n, 1, 1);
        seconds.push_back(contest_seconds(threads) - start);
    }
    double rate() const
    {
        return 2.0 * static_cast<double>(n * n * n) / median_of(seconds);
    }
};

/* Medians of one piece of work over all contenders, taken in turn; small work is repeated until it fills four milliseconds. The probe, if
   there is one, takes its turn too: the machine's rate drifts by a tenth within minutes. */
void measure_in_turn(const contest_options &options, std::vector<contender> *all, const work_of &work, double contest_record::*result,
                     gemm_probe *probe = nullptr)
{
    std::vector<std::vector<double>> times(all->size());
    std::vector<int> repeats(all->size(), 0);
    for (int r = 0; r < options.rounds; ++r) {
        if (probe != nullptr) probe->run();
        for (size_t c = 0; c < all->size(); ++c) {
            contender &one = (*all)[c];
            if (!one.alive || (r > 0 && one.first_factor > options.patience)) continue;
            if (repeats[c] == 0) {
                const double start = contest_seconds(options.threads);
                one.alive = work(&one);
                const double seconds = contest_seconds(options.threads) - start;
                repeats[c] = std::max(1, static_cast<int>(0.004 / std::max(seconds, 1e-7)));
                if (repeats[c] == 1) times[c].push_back(seconds);
                if (repeats[c] == 1) continue;
            }
            const double start = contest_seconds(options.threads);
            for (int k = 0; k < repeats[c]; ++k) one.alive = work(&one) && one.alive;
            times[c].push_back((contest_seconds(options.threads) - start) / repeats[c]);
        }
    }
    for (size_t c = 0; c < all->size(); ++c)
        if (!times[c].empty()) (*all)[c].record.*result = median_of(times[c]);
}

bool wanted(const std::string &list, const char *name)
{
    size_t begin = 0;
    while (begin < list.size()) {
        const size_t end = std::min(list.find(',', begin), list.size());
        if (std::strstr(name, list.substr(begin, end - begin).c_str()) != nullptr) return true;
        begin = end + 1;
    }
    return list.empty();
}

/* Open, analyse and factor once, alone: memory, and who is able at all. */
void first_pass(const bench_system &system, const contest_options &options, const char *name, solver_opener open, bool single,
                std::vector<contender> *all)
{
    contender one;
    solver_settings settings;
    settings.single = single;
    memory_peak_reset();
    if (!open(system, settings, &one.session)) return;
    one.record.name = system.name;
    one.record.solver = name;
    one.record.group = static_cast<int>(system.group);
    one.record.threads = options.threads;
    one.record.n = static_cast<double>(system.whole.rows);
    const double first = bench_seconds();
    one.alive = one.session.analyse();
    const double start = bench_seconds();
    one.alive = one.alive && one.session.factor();
    one.first_factor = bench_seconds() - start;
    one.first_both = bench_seconds() - first;
    one.record.memory = memory_peak();
    one.x.resize(static_cast<size_t>(system.whole.rows * many_columns) * system.words());
    if (!one.alive)
        std::fprintf(stderr, "%s, %s: failed with %lld\n", system.name.c_str(), name, static_cast<long long>(one.session.facts().error));
    all->push_back(std::move(one));
}

std::vector<double> right_sides(const bench_system &system)
{
    std::vector<double> x(static_cast<size_t>(system.whole.rows * many_columns) * system.words()), b(x.size());
    for (size_t k = 0; k < x.size(); ++k) x[k] = 1.0 + 0.125 * static_cast<double>(k * 2654435761u % 17);
    system_product(system, x.data(), b.data(), many_columns);
    return b;
}
} // namespace

std::vector<contest_record> hold_contest(const bench_system &system, const contest_options &options)
{
    std::vector<contender> all;
    for (const competitor &c : competitors()) {
        const double limit = all.empty() ? 0 : std::max(5.0, 6 * all[0].first_both);
        if (limit > 0 && options.affordable && wanted(options.solvers, c.name) && !options.affordable(c.name, limit)) {
            std::fprintf(stderr, "%s, %s: not through in %.0f s, left out\n", system.name.c_str(), c.name, limit);
            continue;
        }
        if (wanted(options.solvers, c.name)) first_pass(system, options, c.name, c.open, false, &all);
        if (std::strcmp(c.name, "ours") == 0 && wanted(options.solvers, "single"))
            first_pass(system, options, "ours, single", c.open, true, &all);
    }
    const std::vector<double> b = right_sides(system);
    measure_in_turn(
        options, &all, [](contender *c) { return c->session.analyse(); }, &contest_record::analysis);
    gemm_probe probe{options.threads};
    measure_in_turn(
        options, &all, [](contender *c) { return c->session.factor(); }, &contest_record::factor, &probe);
    measure_in_turn(
        options, &all, [&](contender *c) { return c->session.refactor() && c->session.solve(b.data(), c->x.data(), 1); },
        &contest_record::refactor_solve);
    measure_in_turn(
        options, &all, [&](contender *c) { return c->session.solve(b.data(), c->x.data(), 1); }, &contest_record::one_vector);
    measure_in_turn(
        options, &all, [&](contender *c) { return c->session.solve(b.data(), c->x.data(), many_columns); }, &contest_record::many_vectors);
    std::vector<contest_record> records;
    for (contender &c : all) {
        const solver_facts facts = c.session.facts();
        c.record.good = c.alive ? 1 : 0;
        c.record.backward_error = c.alive ? system_backward_error(system, c.x.data(), b.data(), many_columns) : NAN;
        c.record.entries = facts.entries;
        c.record.operations = facts.operations;
        c.record.analysis_bytes = facts.analysis_bytes;
        c.record.gemm = probe.rate();
        const double word = c.record.solver == "ours, single" ? 4 : 8;
        c.record.factor_bytes = facts.entries * word * static_cast<double>(system.words());
        const market_matrix &input = system.is_symmetric_type() ? system.upper : system.whole;
        c.record.input_bytes = static_cast<double>(8 * (input.ia.size() + input.ja.size() + input.value.size()));
        records.push_back(c.record);
    }
    return records;
}

machine_record measure_machine(int threads)
{
    machine_record machine;
    const int64_t entries = 8 << 20;
    std::vector<double> a(static_cast<size_t>(entries), 0.5), b(a), c(a), triad;
    gemm_probe probe{threads};
    for (int r = 0; r < 9; ++r) {
        if (r < 5) probe.run();
        const double start = contest_seconds(threads);
        bench_triad(entries, a.data(), b.data(), c.data(), 0.5, threads);
        triad.push_back(contest_seconds(threads) - start);
    }
    machine.gemm = probe.rate();
    machine.bandwidth = 24.0 * static_cast<double>(entries) / median_of(triad);
    return machine;
}

bool write_records(const std::string &path, const machine_record &machine, const std::vector<contest_record> &records)
{
    std::ofstream file(path);
    file.precision(9);
    file << machine.gemm << ' ' << machine.bandwidth << '\n';
    for (const contest_record &r : records) {
        file << r.name << '\t' << r.solver << '\t' << r.group << ' ' << r.threads << ' ' << r.good << ' ' << r.n << ' ' << r.analysis << ' '
             << r.factor << ' ' << r.refactor_solve << ' ' << r.one_vector << ' ' << r.many_vectors << ' ';
        file << (r.good != 0 ? r.backward_error : -1) << ' ' << r.entries << ' ' << r.operations << ' ' << r.memory << ' ' << r.input_bytes
             << ' ' << r.factor_bytes << ' ' << r.analysis_bytes << ' ' << r.gemm << '\n';
    }
    file.close();
    return !file.fail();
}

bool read_records(const std::string &path, machine_record *machine, std::vector<contest_record> *records)
{
    std::ifstream file(path);
    if (!(file >> machine->gemm >> machine->bandwidth)) return false;
    file.ignore();
    contest_record r;
    while (std::getline(file, r.name, '\t') && std::getline(file, r.solver, '\t')) {
        file >> r.group >> r.threads >> r.good >> r.n >> r.analysis >> r.factor >> r.refactor_solve >> r.one_vector >> r.many_vectors >>
            r.backward_error >> r.entries >> r.operations >> r.memory >> r.input_bytes >> r.factor_bytes >> r.analysis_bytes >> r.gemm;
        if (!file) return false;
        file.ignore();
        records->push_back(r);
    }
    return true;
}
