/* The product, through its shared library. */
#include <algorithm>

#include "peers.h"
#include "wkldriver.h"

namespace
{
struct own_state {
    const bench_system *system;
    void *handle[64] = {};
    int64_t iparam[64] = {};
    int64_t error = 0;
    std::vector<int64_t> perm;
    std::vector<float> a, b, x; /* single precision */
    bool single;

    void call(int64_t ido, int64_t nb, const double *from, double *to)
    {
        const bench_system &s = *system;
        const market_matrix &m = s.is_symmetric_type() ? s.upper : s.whole;
        const size_t entries = static_cast<size_t>(m.rows * nb) * s.words();
        const int64_t one = 1, silent = 0;
        const void *values = m.value.data();
        void *right = const_cast<double *>(from), *solution = to;
        if (single) {
            values = a.data();
            if (from != nullptr) b.assign(from, from + entries);
            x.resize(entries);
            right = b.data();
            solution = x.data();
        }
        solvara_driver(handle, &one, &one, &s.type, &ido, &m.rows, values, m.ia.data(), m.ja.data(), perm.data(), &nb, iparam, &silent,
                       right, solution, &error);
        if (single && to != nullptr) std::copy(x.begin(), x.end(), to);
    }
    ~own_state()
    {
        call(-1, 1, nullptr, nullptr);
    }
};

/* Matching and scaling for general and for indefinite types, and the ordering, as the command-line host chooses them. */
void set_parameters(const bench_system &s, const solver_settings &settings, int64_t *iparam)
{
    const bool indefinite = s.type == -2 || s.type == -4 || s.type == 6, general = !s.is_symmetric_type();
    iparam[0] = 1;
    iparam[1] = market_suggest_ordering(s.whole);
    iparam[7] = settings.refine;
    iparam[9] = settings.exponent != 0 ? settings.exponent : general ? 13 : indefinite ? 8 : 0;
    iparam[10] = iparam[12] = indefinite || s.type == 11 || s.type == 13 ? 1 : 0;
    iparam[17] = iparam[18] = -1;
    iparam[20] = indefinite ? 1 : 0;
    iparam[27] = settings.single ? 1 : 0;
}
} // namespace

bool open_own(const bench_system &system, const solver_settings &settings, solver_session *session)
{
    const auto state = std::make_shared<own_state>();
    own_state *p = state.get();
    p->system = &system;
    p->single = settings.single;
    p->perm.resize(static_cast<size_t>(system.whole.rows));
    set_parameters(system, settings, p->iparam);
    const std::vector<double> &values = system.is_symmetric_type() ? system.upper.value : system.whole.value;
    if (settings.single) p->a.assign(values.begin(), values.end());
    session->state = state;
    session->analyse = [p] {
        p->iparam[17] = p->iparam[18] = -1;
        p->call(11, 1, nullptr, nullptr);
        return p->error == 0;
    };
    session->factor = session->refactor = [p] {
        p->call(22, 1, nullptr, nullptr);
        return p->error == 0;
    };
    session->solve = [p](const double *b, double *x, int64_t nb) {
        p->call(33, nb, b, x);
        return p->error == 0;
    };
    session->facts = [p] {
        solver_facts f;
        f.entries = static_cast<double>(p->iparam[17]);
        f.operations = 1e6 * static_cast<double>(p->iparam[18]);
        f.analysis_bytes = 1024 * static_cast<double>(p->iparam[15]);
        if (p->system->is_symmetric_type()) {
            f.positive_pivots = p->iparam[21];
            f.negative_pivots = p->iparam[22];
        }
        f.perturbed_pivots = p->iparam[13];
        f.error = p->error;
        return f;
    };
    return true;
}
