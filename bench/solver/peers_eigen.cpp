#include <Eigen/SparseCholesky>
#include <Eigen/SparseCore>

#include "peers.h"

namespace
{
using sparse = Eigen::SparseMatrix<double, Eigen::ColMajor, int>;

struct eigen_state {
    sparse a;
    Eigen::SimplicialLDLT<sparse, Eigen::Lower> solver;
    double entries = 0;
};
} // namespace

bool open_eigen(const bench_system &system, const solver_settings &, solver_session *session)
{
    if (system.type != 2 || system.whole.rows > 5000) return false;
    const auto state = std::make_shared<eigen_state>();
    eigen_state *p = state.get();
    const int n = static_cast<int>(system.whole.rows);
    const int_columns c = columns_of_lower(system);
    p->a = Eigen::Map<const sparse>(n, n, c.start[static_cast<size_t>(n)], c.start.data(), c.row.data(), c.value.data());
    session->state = state;
    session->analyse = [p] {
        p->solver.analyzePattern(p->a);
        return true;
    };
    session->factor = session->refactor = [p] {
        p->solver.factorize(p->a);
        return p->solver.info() == Eigen::Success;
    };
    session->solve = [p, n](const double *b, double *x, int64_t nb) {
        const Eigen::Map<const Eigen::MatrixXd> right(b, n, nb);
        Eigen::Map<Eigen::MatrixXd>(x, n, nb) = p->solver.solve(right);
        return p->solver.info() == Eigen::Success;
    };
    session->facts = [p] {
        solver_facts f;
        const sparse &l = p->solver.matrixL().nestedExpression();
        f.entries = static_cast<double>(l.nonZeros() + l.rows()); /* its unit diagonal is not stored */
        return f;
    };
    return true;
}
