#include "commands.h"
#include "matrix_market.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <memory>

namespace
{

/* What `info` finds in the stored part of a matrix. */
struct findings {
    int64_t lower_bandwidth = 0, upper_bandwidth = 0; /* largest distance of an entry from the diagonal, on either side */
    int64_t diagonal_present = 0;
    int64_t diagonal_zero = 0;     /* stored, but zero */
    int64_t diagonal_not_real = 0; /* of a Hermitian matrix */
    int64_t diagonal_negative = 0; /* real part below zero */
    int64_t zeros = 0;             /* stored entries that are zero */
};

void look_at_entry(const market_matrix &a, int64_t row, size_t k, findings *f)
{
    const bool is_complex = a.field == market_field::complex;
    const double real = a.value[is_complex ? 2 * k : k], imaginary = is_complex ? a.value[2 * k + 1] : 0.0;
    const int64_t column = a.ja[k];
    const bool zero = real == 0.0 && imaginary == 0.0;
    f->lower_bandwidth = std::max(f->lower_bandwidth, row - column);
    f->upper_bandwidth = std::max(f->upper_bandwidth, column - row);
    f->zeros += zero;
    if (row != column) return;
    ++f->diagonal_present;
    f->diagonal_zero += zero;
    f->diagonal_negative += real < 0.0;
    f->diagonal_not_real += a.symmetry == market_symmetry::hermitian && imaginary != 0.0;
}

findings look_at(const market_matrix &a)
{
    findings f;
    for (int64_t i = 1; i <= a.rows; ++i) {
        const size_t end = static_cast<size_t>(a.ia[static_cast<size_t>(i)] - 1);
        for (size_t k = static_cast<size_t>(a.ia[static_cast<size_t>(i) - 1] - 1); k < end; ++k) look_at_entry(a, i, k, &f);
    }
    if (a.symmetry != market_symmetry::general) f.upper_bandwidth = f.lower_bandwidth;
    return f;
}

const char *field_name(market_field field)
{
    switch (field) {
    case market_field::real:
        return "real";
    case market_field::integer:
        return "integer";
    case market_field::complex:
        return "complex";
    case market_field::pattern:
        return "pattern";
    }
    return "";
}

const char *symmetry_name(market_symmetry symmetry)
{
    switch (symmetry) {
    case market_symmetry::general:
        return "general";
    case market_symmetry::symmetric:
        return "symmetric";
    case market_symmetry::skew_symmetric:
        return "skew-symmetric";
    case market_symmetry::hermitian:
        return "hermitian";
    }
    return "";
}

void print_findings(const market_matrix &a, const findings &f)
{
    const int64_t stored = static_cast<int64_t>(a.ja.size());
    const int64_t whole = a.symmetry == market_symmetry::general ? stored : 2 * stored - f.diagonal_present;
    const int64_t missing = std::min(a.rows, a.columns) - f.diagonal_present;
    std::printf("size             %" PRId64 " x %" PRId64 "\n", a.rows, a.columns);
    std::printf("entries          %" PRId64 "\n", whole);
    std::printf("stored           %" PRId64 " (%" PRId64 " in the file, %s)\n", stored, a.file_entries, a.array ? "array" : "coordinate");
    std::printf("explicit zeros   %" PRId64 "\n", f.zeros);
    std::printf("symmetry         %s\n", symmetry_name(a.symmetry));
    std::printf("value type       %s\n", field_name(a.field));
    std::printf("bandwidth        lower %" PRId64 ", upper %" PRId64 "\n", f.lower_bandwidth, f.upper_bandwidth);
    std::printf("diagonal faults  %" PRId64 " missing, %" PRId64 " zero", missing, f.diagonal_zero);
    if (a.symmetry == market_symmetry::symmetric && a.field != market_field::complex)
        std::printf(", %" PRId64 " negative", f.diagonal_negative);
    if (a.symmetry == market_symmetry::hermitian) std::printf(", %" PRId64 " not real", f.diagonal_not_real);
    std::printf("\n");
}

int run_info(const std::string &path)
{
    market_matrix a;
    std::string error;
    if (!read_matrix_market(path, &a, &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    print_findings(a, look_at(a));
    return 0;
}

} // namespace

void add_info_command(CLI::App *program, int *status)
{
    const auto path = std::make_shared<std::string>();
    CLI::App *command = program->add_subcommand("info", "Tell size, entries, symmetry, value type, bandwidth and diagonal faults");
    command->add_option("matrix", *path, "Matrix Market file")->required();
    command->callback([path, status] { *status = run_info(*path); });
}
