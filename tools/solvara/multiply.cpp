#include "commands.h"
#include "matrix_market.h"
#include "wkldriver.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>

namespace
{

struct multiply_options {
    std::string matrix, vector, output = "-";
    bool transpose = false;
};

/* The real or the imaginary part of an array of values, pairs when complex. */
std::vector<double> part_of(const std::vector<double> &value, bool is_complex, size_t part)
{
    if (!is_complex) return part == 0 ? value : std::vector<double>(value.size(), 0.0);
    std::vector<double> result(value.size() / 2);
    for (size_t k = 0; k < result.size(); ++k) result[k] = value[2 * k + part];
    return result;
}

/* y = A * x for the lower triangle of a real symmetric matrix. */
std::vector<double> multiply_symmetric(const market_matrix &a, const std::vector<double> &x)
{
    std::vector<double> y(x.size());
    wkl_dcsrsymv_driver("L", &a.rows, a.value.data(), a.ia.data(), a.ja.data(), x.data(), y.data(), 1);
    return y;
}

/* A product with any matrix by the symmetric one, from [0 A; A' 0]: its upper triangle is A with its columns moved to the right, and it
   takes (0, x) to (A * x, 0) and (x, 0) to (0, A' * x). */
struct bordered_matrix {
    int64_t rows, order;
    std::vector<int64_t> ia, ja;
};

bordered_matrix border(const market_matrix &a)
{
    bordered_matrix b = {a.rows, a.rows + a.columns, a.ia, a.ja};
    for (int64_t &column : b.ja) column += a.rows;
    b.ia.resize(static_cast<size_t>(b.order) + 1, a.ia.back());
    return b;
}

std::vector<double> multiply_bordered(const bordered_matrix &b, const std::vector<double> &value, bool transpose,
                                      const std::vector<double> &x)
{
    const auto seam = static_cast<ptrdiff_t>(b.rows);
    std::vector<double> input(static_cast<size_t>(b.order), 0.0), output(input);
    std::copy(x.begin(), x.end(), transpose ? input.begin() : input.begin() + seam);
    wkl_dcsrsymv_driver("U", &b.order, value.data(), b.ia.data(), b.ja.data(), input.data(), output.data(), 1);
    return transpose ? std::vector<double>(output.begin() + seam, output.end())
                     : std::vector<double>(output.begin(), output.begin() + seam);
}

/* Complex matrix or vector: four real products, or two where one of them is real. */
std::vector<double> multiply_complex(const market_matrix &a, bool transpose, const std::vector<double> &x, bool x_complex)
{
    const bordered_matrix b = border(a);
    const bool a_complex = a.field == market_field::complex;
    std::vector<double> y(2 * static_cast<size_t>(transpose ? a.columns : a.rows), 0.0);
    for (size_t i = 0; i < (a_complex ? 2u : 1u); ++i) {
        const std::vector<double> a_part = part_of(a.value, a_complex, i);
        for (size_t j = 0; j < (x_complex ? 2u : 1u); ++j) {
            const std::vector<double> part = multiply_bordered(b, a_part, transpose, part_of(x, x_complex, j));
            const double sign = i == 1 && j == 1 ? -1.0 : 1.0;
            for (size_t k = 0; k < part.size(); ++k) y[2 * k + (i ^ j)] += sign * part[k];
        }
    }
    return y;
}

int run_multiply(const multiply_options &options)
{
    market_matrix a;
    std::string error;
    std::vector<double> x, y;
    bool x_complex = false;
    bool good = read_matrix_market(options.matrix, &a, &error);
    const int64_t n = options.transpose ? a.rows : a.columns;
    if (good && options.vector.empty())
        x.assign(static_cast<size_t>(n), 1.0);
    else if (good)
        good = read_market_vector(options.vector, n, &x, &x_complex, &error);
    if (good) {
        const bool is_complex = x_complex || a.field == market_field::complex;
        const bool symmetric = a.symmetry == market_symmetry::symmetric;
        if (!symmetric || is_complex) a = market_expand(a);
        if (is_complex)
            y = multiply_complex(a, options.transpose, x, x_complex);
        else if (symmetric)
            y = multiply_symmetric(a, x);
        else
            y = multiply_bordered(border(a), a.value, options.transpose, x);
        good = write_market_vector(options.output, y, is_complex, &error);
    }
    if (!good) std::fprintf(stderr, "%s\n", error.c_str());
    return good ? 0 : 1;
}

} // namespace

void add_multiply_command(CLI::App *program, int *status)
{
    const auto options = std::make_shared<multiply_options>();
    CLI::App *command = program->add_subcommand("multiply", "Multiply the matrix by a vector");
    command->add_option("matrix", options->matrix, "Matrix Market file")->required();
    command->add_flag("--transpose", options->transpose, "Multiply by the transpose (not conjugated)");
    command->add_option("-x,--vector", options->vector, "Vector to multiply, a file of one column; without it, all ones");
    command->add_option("-o,--output", options->output, "Where the product goes; without it, or with '-', the standard output");
    command->callback([options, status] { *status = run_multiply(*options); });
}
