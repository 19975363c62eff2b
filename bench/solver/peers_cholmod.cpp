#include <cholmod.h>

#include <algorithm>
#include <cstring>

#include "peers.h"

namespace
{
struct cholmod_state {
    cholmod_common common;
    int_columns matrix;
    cholmod_sparse a = {};
    cholmod_factor *l = nullptr;
    cholmod_dense *x = nullptr, *y = nullptr, *e = nullptr; /* kept from solve to solve */
    int64_t n = 0;
    size_t words = 1;

    ~cholmod_state()
    {
        cholmod_free_dense(&x, &common);
        cholmod_free_dense(&y, &common);
        cholmod_free_dense(&e, &common);
        cholmod_free_factor(&l, &common);
        cholmod_finish(&common);
    }
};

bool solve_columns(cholmod_state *p, const double *b, double *x, int64_t nb)
{
    cholmod_dense right = {};
    right.nrow = right.d = static_cast<size_t>(p->n);
    right.ncol = static_cast<size_t>(nb);
    right.nzmax = right.nrow * right.ncol;
    right.x = const_cast<double *>(b);
    right.xtype = p->a.xtype;
    right.dtype = CHOLMOD_DOUBLE;
    if (cholmod_solve2(CHOLMOD_A, p->l, &right, nullptr, &p->x, nullptr, &p->y, &p->e, &p->common) == 0) return false;
    std::memcpy(x, p->x->x, right.nzmax * p->words * sizeof(double));
    return true;
}

bool open_form(const bench_system &system, int form, int ordering, solver_session *session)
{
    if (system.type != 2 && system.type != 4) return false;
    const auto state = std::make_shared<cholmod_state>();
    cholmod_state *p = state.get();
    cholmod_start(&p->common);
    p->common.print = 0;
    p->common.nmethods = 1;
    p->common.method[0].ordering = ordering;
    p->common.supernodal = form;
    p->common.quick_return_if_not_posdef = 1;
    p->matrix = columns_of_lower(system);
    p->n = system.whole.rows;
    p->words = system.words();
    p->a.nrow = p->a.ncol = static_cast<size_t>(p->n);
    p->a.nzmax = p->matrix.row.size();
    p->a.p = p->matrix.start.data();
    p->a.i = p->matrix.row.data();
    p->a.x = p->matrix.value.data();
    p->a.stype = -1;
    p->a.itype = CHOLMOD_INT;
    p->a.xtype = system.is_complex() ? CHOLMOD_COMPLEX : CHOLMOD_REAL;
    p->a.dtype = CHOLMOD_DOUBLE;
    p->a.sorted = p->a.packed = 1;
    session->state = state;
    session->analyse = [p] {
        cholmod_free_factor(&p->l, &p->common);
        p->l = cholmod_analyze(&p->a, &p->common);
        return p->l != nullptr;
    };
    session->factor = session->refactor = [p] { return cholmod_factorize(&p->a, p->l, &p->common) != 0 && p->common.status == CHOLMOD_OK; };
    session->solve = [p](const double *b, double *x, int64_t nb) { return solve_columns(p, b, x, nb); };
    session->facts = [p] {
        solver_facts f;
        f.entries = p->common.lnz;
        f.operations = p->common.fl * (p->words == 2 ? 4 : 1);
        f.error = p->common.status;
        return f;
    };
    return true;
}
} // namespace

bool open_cholmod(const bench_system &system, const solver_settings &, solver_session *session)
{
    return open_form(system, CHOLMOD_SUPERNODAL, CHOLMOD_METIS, session);
}

bool open_simplicial(const bench_system &system, const solver_settings &, solver_session *session)
{
    return system.whole.rows <= 5000 && open_form(system, CHOLMOD_SIMPLICIAL, CHOLMOD_AMD, session);
}
