/* One system, all solvers that take it, the same pieces of work in turn; what was measured as records that go from a child to its parent.
 */
#pragma once

#include <functional>

#include "peers.h"

struct contest_options {
    int threads = 1;
    int rounds = 5;
    double patience = 60; /* seconds: a solver whose first factorization took longer gets one round only */
    std::string solvers;  /* parts of names, separated by commas; empty: all */
    /* Whether a solver gets through analysis and factorization within so many seconds; empty: all are tried. */
    std::function<bool(const char *solver, double seconds)> affordable;
};

/* Seconds: processor time for one thread, so that neighbours on the machine weigh less; the clock for more. */
struct contest_record {
    std::string name, solver;
    int group = 0, threads = 1, good = 0;
    double n = 0, analysis = 0, factor = 0, refactor_solve = 0, one_vector = 0, many_vectors = 0;
    double backward_error = 0, entries = 0, operations = 0, memory = 0;
    double input_bytes = 0, factor_bytes = 0, analysis_bytes = 0;
    double gemm = 0; /* operations a second of a product on all threads, between the factorizations */
};

struct machine_record {
    double gemm = 0, bandwidth = 0; /* operations and bytes a second */
};

constexpr int64_t many_columns = 32;

/* Runs the contest; one record for each solver, the product first. */
std::vector<contest_record> hold_contest(const bench_system &system, const contest_options &options);

/* What the machine can do, measured as the records are. */
machine_record measure_machine(int threads);

bool write_records(const std::string &path, const machine_record &machine, const std::vector<contest_record> &records);
bool read_records(const std::string &path, machine_record *machine, std::vector<contest_record> *records);
