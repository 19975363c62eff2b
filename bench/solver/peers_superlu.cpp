/* SuperLU, sequential, real: the expert driver. */
#include <slu_ddefs.h>

#include <algorithm>

#include "peers.h"

namespace
{
struct superlu_state {
    int_columns matrix;
    std::vector<double> scaled; /* equilibration works in place */
    int n = 0;
    superlu_options_t options;
    SuperMatrix a, l, u;
    bool factored = false, ordered = false;
    std::vector<int> perm_c, perm_r, etree;
    std::vector<double> r, c, copy;
    char equed[2] = "N";
    GlobalLU_t glu;
    SuperLUStat_t stat;
    double entries = 0;
    int info = 0;

    void free_factors()
    {
        if (!factored) return;
        Destroy_SuperNode_Matrix(&l);
        Destroy_CompCol_Matrix(&u);
        factored = false;
    }
    ~superlu_state()
    {
        free_factors();
        Destroy_SuperMatrix_Store(&a);
        StatFree(&stat);
    }
    void drive(fact_t fact, const double *b, double *x, int columns)
    {
        SuperMatrix right, solution;
        copy.assign(b, b + static_cast<size_t>(n) * static_cast<size_t>(columns));
        dCreate_Dense_Matrix(&right, n, columns, copy.data(), n, SLU_DN, SLU_D, SLU_GE);
        dCreate_Dense_Matrix(&solution, n, columns, x, n, SLU_DN, SLU_D, SLU_GE);
        double growth = 0, rcond = 0;
        std::vector<double> ferr(static_cast<size_t>(columns) + 1), berr(ferr);
        mem_usage_t memory;
        options.Fact = fact;
        dgssvx(&options, &a, perm_c.data(), perm_r.data(), etree.data(), equed, r.data(), c.data(), &l, &u, nullptr, 0, &right, &solution,
               &growth, &rcond, ferr.data(), berr.data(), &glu, &memory, &stat, &info);
        Destroy_SuperMatrix_Store(&right);
        Destroy_SuperMatrix_Store(&solution);
    }
    bool factor()
    {
        free_factors();
        std::copy(matrix.value.begin(), matrix.value.end(), scaled.begin());
        drive(ordered ? SamePattern : DOFACT, nullptr, nullptr, 0);
        if (info < 0 || info > n + 1) return false; /* no memory: no factors */
        factored = ordered = true;
        entries =
            static_cast<double>(static_cast<SCformat *>(l.Store)->nnz) + static_cast<double>(static_cast<NCformat *>(u.Store)->nnz) - n;
        return info == 0 || info == n + 1;
    }
};
} // namespace

bool open_superlu(const bench_system &system, const solver_settings &settings, solver_session *session)
{
    if (system.type != 11 && system.type != 1) return false;
    if (system.group == bench_group::network && system.whole.rows > 50000) return false; /* its column ordering fills hubs: minutes */
    const auto state = std::make_shared<superlu_state>();
    superlu_state *p = state.get();
    p->matrix = columns_of_whole(system);
    p->scaled = p->matrix.value;
    p->n = static_cast<int>(system.whole.rows);
    const size_t n = static_cast<size_t>(p->n);
    dCreate_CompCol_Matrix(&p->a, p->n, p->n, static_cast<int>(p->matrix.row.size()), p->scaled.data(), p->matrix.row.data(),
                           p->matrix.start.data(), SLU_NC, SLU_D, SLU_GE);
    StatInit(&p->stat);
    set_default_options(&p->options);
    p->options.PrintStat = NO;
    p->options.IterRefine = settings.refine != 0 ? SLU_DOUBLE : NOREFINE;
    const bool symmetric_mode = system.group != bench_group::network && n > 20000; /* as its guide advises for dominant diagonals */
    if (symmetric_mode) {
        p->options.SymmetricMode = YES;
        p->options.DiagPivotThresh = 0.01;
    }
    p->options.ColPerm = MY_PERMC;
    for (auto *list : {&p->perm_c, &p->perm_r, &p->etree}) list->resize(n);
    p->r.resize(n);
    p->c.resize(n);
    session->state = state;
    session->analyse = [p, symmetric_mode] {
        p->ordered = false;
        get_perm_c(symmetric_mode ? MMD_AT_PLUS_A : COLAMD, &p->a, p->perm_c.data());
        return true;
    };
    session->factor = session->refactor = [p] { return p->factor(); };
    session->solve = [p](const double *b, double *x, int64_t nb) {
        p->drive(FACTORED, b, x, static_cast<int>(nb));
        return p->info == 0 || p->info == p->n + 1;
    };
    session->facts = [p] {
        solver_facts f;
        f.entries = p->entries;
        f.error = p->info;
        return f;
    };
    return true;
}
