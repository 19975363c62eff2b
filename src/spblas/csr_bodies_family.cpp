/* The double bodies of one processor family. Compiled once a family with its flags; WKL_SPBLAS_TABLE names the table, WKL_SPBLAS_FUSED says
   whether sums into y are rounded once (the row accumulator never is). */
#include "spblas/csr_kernels.h"

namespace
{

struct real_arithmetic {
    using value = double;
    static constexpr bool real = true;
    static constexpr bool fused = WKL_SPBLAS_FUSED;
    static double multiply(double a, double b)
    {
        return a * b;
    }
    static double conjugate(double a)
    {
        return a;
    }
};

} // namespace

constinit const csr_bodies<double> WKL_SPBLAS_TABLE = body_table<real_arithmetic>();
