/* Solvers that compete on one system in the same run. Each is opened on the same matrix and then driven by the same calls, so that what is
   timed is the same piece of work everywhere. */
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "matrix_market.h"

enum class bench_group { definite, indefinite, unsymmetric, complex_symmetric, network, small_definite };

struct bench_system {
    std::string name;
    bench_group group = bench_group::definite;
    int64_t type = 2;    /* matrix type as the product counts them */
    market_matrix whole; /* all entries, by rows, 1-based */
    market_matrix upper; /* the upper triangle by rows for the types that are given so, otherwise empty */
    double norm = 0;     /* largest row sum of magnitudes */
    bool is_complex() const
    {
        return whole.field == market_field::complex;
    }
    bool is_symmetric_type() const
    {
        return type % 2 == 0;
    }
    size_t words() const
    {
        return is_complex() ? 2 : 1;
    }
};

/* matrix: as the generators and the reader give it, symmetric ones as a lower triangle. */
bench_system make_system(const std::string &name, bench_group group, int64_t type, const market_matrix &matrix);

/* y = A x for nb columns. */
void system_product(const bench_system &s, const double *x, double *y, int64_t nb);

/* ||b - A x|| / (||A|| ||x|| + ||b||), largest-entry norms, the worst of nb columns; a NaN stays one. */
double system_backward_error(const bench_system &s, const double *x, const double *b, int64_t nb);

/* Compressed columns with 0-based 32-bit numbers, as the peers take them. */
struct int_columns {
    std::vector<int> start, row;
    std::vector<double> value;
};
int_columns columns_of_whole(const bench_system &s);
int_columns columns_of_lower(const bench_system &s); /* of a symmetric or Hermitian one: below the diagonal and the diagonal */

struct solver_facts {
    double entries = 0;           /* of the factors, as the solver counts them */
    double operations = 0;        /* of one factorization, 0 when it does not tell */
    double analysis_bytes = 0;    /* of the arrays that the analysis keeps, 0 when it does not tell */
    int64_t negative_pivots = -1; /* -1: not told */
    int64_t positive_pivots = -1;
    int64_t perturbed_pivots = -1;
    int64_t error = 0; /* the solver's own code of the last failure */
};

struct solver_settings {
    int64_t refine = 0;   /* steps of iterative refinement, where the solver has it */
    int64_t exponent = 0; /* ours: a pivot below 10 to minus this is replaced; 0: its own choice */
    bool single = false;
};

/* Calls return false after a failure. `solve` takes nb columns without gaps. */
struct solver_session {
    std::shared_ptr<void> state; /* freed last; closes the solver */
    std::function<bool()> analyse, factor, refactor;
    std::function<bool(const double *b, double *x, int64_t nb)> solve;
    std::function<solver_facts()> facts;
};

/* False: not a solver for this system. */
using solver_opener = bool (*)(const bench_system &, const solver_settings &, solver_session *);

bool open_own(const bench_system &, const solver_settings &, solver_session *);
bool open_cholmod(const bench_system &, const solver_settings &, solver_session *);    /* supernodal, METIS */
bool open_simplicial(const bench_system &, const solver_settings &, solver_session *); /* CHOLMOD, simplicial, AMD */
bool open_mumps(const bench_system &, const solver_settings &, solver_session *);
bool open_umfpack(const bench_system &, const solver_settings &, solver_session *);
bool open_klu(const bench_system &, const solver_settings &, solver_session *);
bool open_superlu(const bench_system &, const solver_settings &, solver_session *);
bool open_eigen(const bench_system &, const solver_settings &, solver_session *);

struct competitor {
    const char *name;
    solver_opener open;
};

/* The product first, then the peers that were found at configure time. */
const std::vector<competitor> &competitors();

/* What the process reached at most since the last reset, in bytes above the memory in use then; negative when the system does not tell. */
void memory_peak_reset();
double memory_peak();
