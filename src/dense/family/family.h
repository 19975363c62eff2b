/* The table of one family. Included once by each family_*.cpp, which names the family in WKL_FAMILY and is compiled with its flags.
   Products and sums are fused only where vector.h says so: the files are compiled with -ffp-contract=off. */
#pragma once

#include "dense/family/columns.h"
#include "dense/family/getrf.h"
#include "dense/family/interleaved.h"
#include "dense/family/narrow_sweep.h"
#include "dense/family/pushing.h"

namespace WKL_FAMILY
{
namespace
{

template <typename value_t>
constexpr kernel_table<value_t> make_table()
{
    return {gemm<value_t>,
            trsm<value_t>,
            update<value_t>,
            update_blocks<value_t>,
            potrf_panel<value_t>,
            factor_pushing<value_t>,
            getrf<value_t>,
            gemv<value_t>,
            dot<value_t>,
            axpy<value_t>,
            solve_lower<value_t>,
            solve_lower_transposed<value_t>,
            panel_forward<value_t>,
            panel_backward<value_t>,
            columns_forward<value_t>,
            columns_backward<value_t>,
            narrow_forward<value_t>,
            narrow_backward<value_t>,
            interleaved_forward<value_t>,
            interleaved_backward<value_t>};
}

} // namespace

extern const kernel_table<double> table_d;
extern const kernel_table<float> table_s;
extern const kernel_table<std::complex<double>> table_z;
extern const kernel_table<std::complex<float>> table_c;
constexpr kernel_table<double> table_d = make_table<double>();
constexpr kernel_table<float> table_s = make_table<float>();
constexpr kernel_table<std::complex<double>> table_z = make_table<std::complex<double>>();
constexpr kernel_table<std::complex<float>> table_c = make_table<std::complex<float>>();

} // namespace WKL_FAMILY
