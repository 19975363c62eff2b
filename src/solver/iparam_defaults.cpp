#include "solver/control.h"

namespace
{
/* Start values that depend on the matrix type. */
struct default_row {
    int64_t matrix_type, perturbation_exponent, scaling, matching, pivoting;
};
constexpr default_row default_rows[] = {
    {1, 13, 0, 0, 0}, {3, 13, 0, 0, 0}, {11, 13, 1, 1, 0}, {13, 13, 1, 1, 0}, {-2, 8, 0, 0, 1}, {-4, 8, 0, 0, 1}, {6, 8, 0, 0, 1},
};
} // namespace

/* Clear all words of iparam and write the start values for matrix_type. */
void iparam_defaults(int64_t *iparam, int64_t matrix_type)
{
    for (int64_t i = 0; i < iparam_count; ++i) iparam[i] = 0;
    iparam_at(iparam, iparam_use_defaults) = 1;
    iparam_at(iparam, iparam_preprocessing) = 2;
    iparam_at(iparam, iparam_factor_nonzeros) = -1;
    iparam_at(iparam, iparam_operation_count) = -1;
    for (const default_row &row : default_rows) {
        if (row.matrix_type != matrix_type) continue;
        iparam_at(iparam, iparam_perturbation_exponent) = row.perturbation_exponent;
        iparam_at(iparam, iparam_scaling) = row.scaling;
        iparam_at(iparam, iparam_matching) = row.matching;
        iparam_at(iparam, iparam_pivoting) = row.pivoting;
    }
}
