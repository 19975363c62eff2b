/* MUMPS, sequential package; threads come from its BLAS alone. */
#include <dmumps_c.h>
#include <zmumps_c.h>

#include <algorithm>

#include "peers.h"

namespace
{
struct real_kind {
    using record = DMUMPS_STRUC_C;
    using value = DMUMPS_REAL;
    static void call(record *r)
    {
        dmumps_c(r);
    }
};
struct complex_kind {
    using record = ZMUMPS_STRUC_C;
    using value = mumps_double_complex;
    static void call(record *r)
    {
        zmumps_c(r);
    }
};

enum mumps_job { mumps_open = -1, mumps_close = -2, mumps_analysis = 1, mumps_factorization = 2, mumps_solution = 3 };

template <typename kind>
struct mumps_state {
    typename kind::record id = {};
    std::vector<MUMPS_INT> row, column;
    std::vector<double> value;

    bool run(int job)
    {
        id.job = job;
        kind::call(&id);
        return id.infog[0] >= 0;
    }
    ~mumps_state()
    {
        run(mumps_close);
    }
};

/* Positions as published: icntl(k) is icntl[k - 1]. */
template <typename kind>
void set_controls(const bench_system &system, const solver_settings &settings, mumps_state<kind> *p)
{
    for (size_t stream = 0; stream < 4; ++stream) p->id.icntl[stream] = stream == 3 ? 0 : -1;
    p->id.icntl[6] = system.whole.rows > 20000 ? 3 : 7; /* SCOTCH for large ones, as the package has no METIS; otherwise its own choice */
    p->id.icntl[9] = static_cast<MUMPS_INT>(-settings.refine); /* negative: that many steps, without its test */
    p->id.icntl[13] = 60;                                      /* per cent of room for delayed pivots */
    p->id.n = static_cast<MUMPS_INT>(system.whole.rows);
    p->id.nnz = static_cast<MUMPS_INT8>(p->row.size());
    p->id.irn = p->row.data();
    p->id.jcn = p->column.data();
    p->id.a = reinterpret_cast<typename kind::value *>(p->value.data());
}

template <typename kind>
bool factorize(mumps_state<kind> *p)
{
    bool good = p->run(mumps_factorization);
    while (!good && (p->id.infog[0] == -9 || p->id.infog[0] == -8) && p->id.icntl[13] < 2000) { /* the estimate was too small */
        p->id.icntl[13] *= 3;
        good = p->run(mumps_factorization);
    }
    return good;
}

template <typename kind>
bool open_kind(const bench_system &system, const solver_settings &settings, solver_session *session)
{
    const auto state = std::make_shared<mumps_state<kind>>();
    mumps_state<kind> *p = state.get();
    const bool definite = system.type == 2;
    const bool symmetric = definite || system.type == -2 || system.type == 6; /* Hermitian ones go as general */
    p->id.comm_fortran = -987654;
    p->id.par = 1;
    p->id.sym = definite ? 1 : symmetric ? 2 : 0;
    if (!p->run(mumps_open)) return false;
    const market_matrix &m = symmetric ? system.upper : system.whole;
    for (int64_t i = 1; i <= m.rows; ++i)
        for (int64_t k = m.ia[static_cast<size_t>(i) - 1]; k < m.ia[static_cast<size_t>(i)]; ++k) {
            p->row.push_back(static_cast<MUMPS_INT>(i));
            p->column.push_back(static_cast<MUMPS_INT>(m.ja[static_cast<size_t>(k) - 1]));
        }
    p->value = m.value;
    set_controls(system, settings, p);
    const size_t words = system.words();
    session->state = state;
    session->analyse = [p] { return p->run(mumps_analysis); };
    session->factor = session->refactor = [p] { return factorize(p); };
    session->solve = [p, words](const double *b, double *x, int64_t nb) {
        std::copy(b, b + static_cast<size_t>(p->id.n * nb) * words, x);
        p->id.rhs = reinterpret_cast<typename kind::value *>(x);
        p->id.nrhs = static_cast<MUMPS_INT>(nb);
        p->id.lrhs = p->id.n;
        return p->run(mumps_solution);
    };
    session->facts = [p, symmetric, words] {
        solver_facts f;
        const double told = p->id.infog[28]; /* negative: millions */
        f.entries = told < 0 ? -1e6 * told : told;
        f.operations = p->id.rinfog[2] * (words == 2 ? 4 : 1);
        if (symmetric && words == 1) {
            f.negative_pivots = p->id.infog[11];
            f.positive_pivots = p->id.n - p->id.infog[11];
        }
        f.error = p->id.infog[0];
        return f;
    };
    return true;
}
} // namespace

bool open_mumps(const bench_system &system, const solver_settings &settings, solver_session *session)
{
    return system.is_complex() ? open_kind<complex_kind>(system, settings, session) : open_kind<real_kind>(system, settings, session);
}
