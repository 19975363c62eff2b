/* UMFPACK and KLU, both with 32-bit numbers. */
#include <klu.h>
#include <umfpack.h>

#include <algorithm>

#include "peers.h"

namespace
{
struct umfpack_state {
    int_columns matrix;
    int n = 0;
    bool is_complex = false;
    void *symbolic = nullptr, *numeric = nullptr;
    double control[UMFPACK_CONTROL] = {}, info[UMFPACK_INFO] = {};
    int code = 0;

    void free_symbolic()
    {
        is_complex ? umfpack_zi_free_symbolic(&symbolic) : umfpack_di_free_symbolic(&symbolic);
    }
    void free_numeric()
    {
        is_complex ? umfpack_zi_free_numeric(&numeric) : umfpack_di_free_numeric(&numeric);
    }
    ~umfpack_state()
    {
        free_numeric();
        free_symbolic();
    }
    bool analyse()
    {
        free_numeric();
        free_symbolic();
        const int *start = matrix.start.data(), *row = matrix.row.data();
        code = is_complex ? umfpack_zi_symbolic(n, n, start, row, matrix.value.data(), nullptr, &symbolic, control, info)
                          : umfpack_di_symbolic(n, n, start, row, matrix.value.data(), &symbolic, control, info);
        return code == UMFPACK_OK;
    }
    bool factor()
    {
        free_numeric();
        const int *start = matrix.start.data(), *row = matrix.row.data();
        code = is_complex ? umfpack_zi_numeric(start, row, matrix.value.data(), nullptr, symbolic, &numeric, control, info)
                          : umfpack_di_numeric(start, row, matrix.value.data(), symbolic, &numeric, control, info);
        return code == UMFPACK_OK || code == UMFPACK_WARNING_singular_matrix;
    }
    bool solve(const double *b, double *x)
    {
        const int *start = matrix.start.data(), *row = matrix.row.data();
        double told[UMFPACK_INFO];
        code = is_complex
                   ? umfpack_zi_solve(UMFPACK_A, start, row, matrix.value.data(), nullptr, x, nullptr, b, nullptr, numeric, control, told)
                   : umfpack_di_solve(UMFPACK_A, start, row, matrix.value.data(), x, b, numeric, control, told);
        return code == UMFPACK_OK || code == UMFPACK_WARNING_singular_matrix;
    }
};

struct klu_state {
    int_columns matrix;
    int n = 0;
    bool is_complex = false;
    klu_common common;
    klu_symbolic *symbolic = nullptr;
    klu_numeric *numeric = nullptr;

    void free_numeric()
    {
        is_complex ? klu_z_free_numeric(&numeric, &common) : klu_free_numeric(&numeric, &common);
    }
    ~klu_state()
    {
        free_numeric();
        klu_free_symbolic(&symbolic, &common);
    }
    bool factor()
    {
        free_numeric();
        if (symbolic->est_flops > 5e10) { /* minutes at its rate, which has no supernodes to use */
            common.status = KLU_TOO_LARGE;
            return false;
        }
        int *start = matrix.start.data(), *row = matrix.row.data();
        numeric = is_complex ? klu_z_factor(start, row, matrix.value.data(), symbolic, &common)
                             : klu_factor(start, row, matrix.value.data(), symbolic, &common);
        return numeric != nullptr && common.status == KLU_OK;
    }
    bool refactor()
    {
        int *start = matrix.start.data(), *row = matrix.row.data();
        return (is_complex ? klu_z_refactor(start, row, matrix.value.data(), symbolic, numeric, &common)
                           : klu_refactor(start, row, matrix.value.data(), symbolic, numeric, &common)) != 0;
    }
    bool solve(const double *b, double *x, int64_t nb)
    {
        const int columns = static_cast<int>(nb);
        std::copy(b, b + static_cast<int64_t>(n) * nb * (is_complex ? 2 : 1), x);
        return (is_complex ? klu_z_solve(symbolic, numeric, n, columns, x, &common)
                           : klu_solve(symbolic, numeric, n, columns, x, &common)) != 0;
    }
};
} // namespace

bool open_umfpack(const bench_system &system, const solver_settings &settings, solver_session *session)
{
    if (system.type != 11 && system.type != 13 && system.type != 1 && system.type != 3) return false;
    const auto state = std::make_shared<umfpack_state>();
    umfpack_state *p = state.get();
    p->matrix = columns_of_whole(system);
    p->n = static_cast<int>(system.whole.rows);
    p->is_complex = system.is_complex();
    p->is_complex ? umfpack_zi_defaults(p->control) : umfpack_di_defaults(p->control);
    p->control[UMFPACK_IRSTEP] = static_cast<double>(settings.refine);
    if (system.group == bench_group::unsymmetric && p->n > 20000) p->control[UMFPACK_ORDERING] = UMFPACK_ORDERING_METIS;
    session->state = state;
    session->analyse = [p] { return p->analyse(); };
    session->factor = session->refactor = [p] { return p->factor(); };
    session->solve = [p](const double *b, double *x, int64_t nb) {
        const int64_t step = static_cast<int64_t>(p->n) * (p->is_complex ? 2 : 1);
        bool good = true;
        for (int64_t c = 0; c < nb; ++c) good = p->solve(b + c * step, x + c * step) && good;
        return good;
    };
    session->facts = [p] {
        solver_facts f;
        f.entries = p->info[UMFPACK_LNZ] + p->info[UMFPACK_UNZ];
        f.operations = p->info[UMFPACK_FLOPS];
        f.error = p->code;
        return f;
    };
    return true;
}

bool open_klu(const bench_system &system, const solver_settings &, solver_session *session)
{
    const bool general = system.type == 11 || system.type == 13 || system.type == 1 || system.type == 3;
    /* without supernodes it is no contender on grids in space */
    if (!general || (system.group == bench_group::unsymmetric && system.whole.rows > 30000)) return false;
    const auto state = std::make_shared<klu_state>();
    klu_state *p = state.get();
    p->matrix = columns_of_whole(system);
    p->n = static_cast<int>(system.whole.rows);
    p->is_complex = system.is_complex();
    klu_defaults(&p->common);
    session->state = state;
    session->analyse = [p] {
        p->free_numeric();
        klu_free_symbolic(&p->symbolic, &p->common);
        p->symbolic = klu_analyze(p->n, p->matrix.start.data(), p->matrix.row.data(), &p->common);
        return p->symbolic != nullptr;
    };
    session->factor = [p] { return p->factor(); };
    session->refactor = [p] { return p->refactor(); };
    session->solve = [p](const double *b, double *x, int64_t nb) { return p->solve(b, x, nb); };
    session->facts = [p] {
        solver_facts f;
        if (p->numeric != nullptr) f.entries = static_cast<double>(p->numeric->lnz) + static_cast<double>(p->numeric->unz);
        f.error = p->common.status;
        return f;
    };
    return true;
}
