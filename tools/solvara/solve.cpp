#include "commands.h"
#include "matrix_market.h"
#include "wkldriver.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <memory>

namespace
{

struct solve_options {
    std::string matrix, right_side, output, method = "auto";
    int64_t type = 0; /* 0: found from the file */
    int64_t refine = 0;
    int64_t exponent = 0; /* 0: the library's own choice for the type */
    bool single = false, transpose = false, plain = false, quiet = false;
};

/* The system as the library wants it. */
struct linear_system {
    market_matrix whole; /* for the residual */
    market_matrix input; /* upper triangle, or all entries */
    bool is_complex;
    std::vector<double> b, x;
};

bool is_symmetric_type(int64_t type)
{
    return type % 2 == 0;
}
bool is_complex_type(int64_t type)
{
    return type == 3 || type == 13 || type == 4 || type == -4 || type == 6;
}

bool has_positive_diagonal(const market_matrix &a)
{
    const size_t words = a.field == market_field::complex ? 2 : 1;
    for (int64_t i = 1; i <= a.rows; ++i) {
        bool positive = false;
        for (int64_t p = a.ia[static_cast<size_t>(i) - 1]; p < a.ia[static_cast<size_t>(i)]; ++p)
            positive |= a.ja[static_cast<size_t>(p) - 1] == i && a.value[words * (static_cast<size_t>(p) - 1)] > 0;
        if (!positive) return false;
    }
    return true;
}

/* The best type that the file allows; a definite one is a guess that the factorization checks. */
int64_t guess_type(const market_matrix &a)
{
    const bool is_complex = a.field == market_field::complex;
    if (a.symmetry == market_symmetry::hermitian) return has_positive_diagonal(a) ? 4 : -4;
    if (a.symmetry == market_symmetry::symmetric) {
        if (is_complex) return 6;
        return has_positive_diagonal(a) ? 2 : -2;
    }
    return is_complex ? 13 : 11;
}

bool type_fits(const market_matrix &a, int64_t type, std::string *error)
{
    const bool hermitian = type == 4 || type == -4;
    if (is_complex_type(type) != (a.field == market_field::complex)) *error = "the type and the file disagree on real or complex values";
    if (is_symmetric_type(type) && a.symmetry != (hermitian ? market_symmetry::hermitian : market_symmetry::symmetric))
        *error = "the type asks for a symmetry that the file does not have";
    return error->empty();
}

/* y = A x (or its transpose) with the whole matrix. */
std::vector<double> multiply(const linear_system &s, bool transpose, const std::vector<double> &x)
{
    const market_matrix &a = s.whole;
    std::vector<double> y(x.size(), 0.0);
    for (int64_t i = 0; i < a.rows; ++i) {
        for (int64_t p = a.ia[static_cast<size_t>(i)] - 1; p < a.ia[static_cast<size_t>(i) + 1] - 1; ++p) {
            const size_t k = static_cast<size_t>(p), j = static_cast<size_t>(a.ja[k] - 1);
            const size_t to = transpose ? j : static_cast<size_t>(i), from = transpose ? static_cast<size_t>(i) : j;
            if (!s.is_complex) {
                y[to] += a.value[k] * x[from];
                continue;
            }
            y[2 * to] += a.value[2 * k] * x[2 * from] - a.value[2 * k + 1] * x[2 * from + 1];
            y[2 * to + 1] += a.value[2 * k] * x[2 * from + 1] + a.value[2 * k + 1] * x[2 * from];
        }
    }
    return y;
}

double entry(const std::vector<double> &v, bool is_complex, size_t k)
{
    return is_complex ? std::hypot(v[2 * k], v[2 * k + 1]) : std::abs(v[k]);
}

/* ||b - A x|| / (||A|| ||x|| + ||b||) in the largest-entry and largest-row-sum norms; a NaN stays one. */
double backward_error(const linear_system &s, bool transpose)
{
    const size_t n = static_cast<size_t>(s.whole.rows);
    std::vector<double> r = multiply(s, transpose, s.x), row(n, 0.0);
    for (size_t k = 0; k < r.size(); ++k) r[k] = s.b[k] - r[k];
    for (size_t i = 0; i < n; ++i)
        for (int64_t p = s.whole.ia[i] - 1; p < s.whole.ia[i + 1] - 1; ++p)
            row[transpose ? static_cast<size_t>(s.whole.ja[static_cast<size_t>(p)] - 1) : i] +=
                entry(s.whole.value, s.is_complex, static_cast<size_t>(p));
    double residual = 0, norm_x = 0, norm_b = 0, norm_a = 0;
    for (size_t i = 0; i < n; ++i) {
        const double e = entry(r, s.is_complex, i);
        if (!(e <= residual)) residual = e;
        norm_x = std::max(norm_x, entry(s.x, s.is_complex, i));
        norm_b = std::max(norm_b, entry(s.b, s.is_complex, i));
        norm_a = std::max(norm_a, row[i]);
    }
    const double scale = norm_a * norm_x + norm_b;
    return scale > 0 ? residual / scale : residual;
}

/* The defaults of the library, with matching and scaling on for indefinite types as well. */
void fill_parameters(const solve_options &options, int64_t type, const market_matrix &whole, int64_t *iparam)
{
    const bool indefinite = type == -2 || type == -4 || type == 6, general = !is_symmetric_type(type);
    const bool prepare = !options.plain && (indefinite || type == 11 || type == 13);
    std::fill(iparam, iparam + 64, int64_t{0});
    iparam[0] = 1;
    iparam[1] = options.method == "degree" ? 0 : options.method == "parallel" ? 3 : market_suggest_ordering(whole);
    iparam[7] = options.refine;
    iparam[9] = options.exponent != 0 ? options.exponent : general ? 13 : indefinite ? 8 : 0;
    iparam[10] = iparam[12] = prepare ? 1 : 0;
    iparam[11] = options.transpose ? 2 : 0;
    iparam[17] = iparam[18] = -1;
    iparam[20] = indefinite ? 1 : 0;
    iparam[26] = 1;
    iparam[27] = options.single ? 1 : 0;
}

/* Analysis, factorization and solve in one call; then the handle is released. Returns the error of the solve. */
template <typename real_t>
int64_t run_driver(const solve_options &options, int64_t type, linear_system *s, int64_t *iparam)
{
    const std::vector<real_t> a(s->input.value.begin(), s->input.value.end());
    std::vector<real_t> b(s->b.begin(), s->b.end()), x(b.size());
    std::vector<int64_t> perm(static_cast<size_t>(s->input.rows));
    void *handle[64] = {};
    const int64_t one = 1, message_level = options.quiet ? 0 : 1, all = 13, release = -1;
    int64_t error = 0, release_error = 0;
    solvara_driver(handle, &one, &one, &type, &all, &s->input.rows, a.data(), s->input.ia.data(), s->input.ja.data(), perm.data(), &one,
                   iparam, &message_level, b.data(), x.data(), &error);
    solvara_driver(handle, &one, &one, &type, &release, &s->input.rows, a.data(), s->input.ia.data(), s->input.ja.data(), perm.data(), &one,
                   iparam, &message_level, b.data(), x.data(), &release_error);
    s->x.assign(x.begin(), x.end());
    return error;
}

/* The file's matrix, its right-hand side, and the part of it that the type asks for. */
bool load_system(const solve_options &options, market_matrix *a, linear_system *s, std::string *error)
{
    if (!read_matrix_market(options.matrix, a, error)) return false;
    if (a->rows != a->columns) *error = options.matrix + ": the matrix is not square";
    if (error->empty() && options.type != 0) type_fits(*a, options.type, error);
    if (!error->empty()) return false;
    s->is_complex = a->field == market_field::complex;
    s->whole = market_expand(*a);
    const std::vector<double> ones(static_cast<size_t>(a->rows), 1.0);
    if (options.right_side.empty()) {
        s->x.assign(s->is_complex ? 2 * ones.size() : ones.size(), 0.0);
        for (size_t k = 0; k < ones.size(); ++k) s->x[s->is_complex ? 2 * k : k] = 1.0;
        s->b = multiply(*s, options.transpose, s->x);
        return true;
    }
    bool b_complex = false;
    if (!read_market_vector(options.right_side, a->rows, &s->b, &b_complex, error)) return false;
    if (b_complex && !s->is_complex) *error = options.right_side + ": a complex right-hand side for a real matrix";
    if (s->is_complex && !b_complex) {
        std::vector<double> pairs(2 * s->b.size(), 0.0);
        for (size_t k = 0; k < s->b.size(); ++k) pairs[2 * k] = s->b[k];
        s->b = pairs;
    }
    return error->empty();
}

void print_result(const linear_system &s, const solve_options &options, int64_t type, const int64_t *iparam, double seconds, double error)
{
    std::printf("matrix type                %" PRId64 "%s\n", type, options.single ? ", single precision" : "");
    std::printf("equations                  %" PRId64 "\n", s.input.rows);
    std::printf("entries of the factors     %" PRId64 "\n", iparam[17]);
    std::printf("operations                 %" PRId64 " million\n", iparam[18]);
    std::printf("perturbed pivots           %" PRId64 "\n", iparam[13]);
    if (is_symmetric_type(type)) std::printf("positive, negative pivots  %" PRId64 ", %" PRId64 "\n", iparam[21], iparam[22]);
    std::printf("refinement steps           %" PRId64 "\n", iparam[6]);
    std::printf("seconds                    %.3f\n", seconds);
    std::printf("backward error             %.2e\n", error);
}

/* Solves with the types that the file allows, definite ones first where it was not chosen. Returns the error of the library. */
int64_t solve_system(const solve_options &options, const market_matrix &a, linear_system *s, int64_t *type, int64_t *iparam)
{
    int64_t error = 0;
    for (bool again = true; again;) {
        s->input = is_symmetric_type(*type) ? market_transpose(a) : s->whole;
        fill_parameters(options, *type, s->whole, iparam);
        error = options.single ? run_driver<float>(options, *type, s, iparam) : run_driver<double>(options, *type, s, iparam);
        again = error == -4 && options.type == 0 && (*type == 2 || *type == 4); /* not definite after all */
        if (again) *type = -*type;
    }
    return error;
}

/* Pivots so small that they spoil the solution may pass the library's own choice of the exponent, which refinement then cannot repair. */
void choose_careful_parameters(solve_options *options)
{
    options->exponent = options->single ? 3 : 8;
    options->refine = 2;
    std::printf("solution not good enough: factoring again with perturbation exponent %" PRId64 " and refinement\n", options->exponent);
}

int run_solve(const solve_options &given)
{
    solve_options options = given;
    market_matrix a;
    linear_system s;
    std::string message;
    if (!load_system(options, &a, &s, &message)) {
        std::fprintf(stderr, "%s\n", message.c_str());
        return 1;
    }
    int64_t type = options.type != 0 ? options.type : guess_type(a), iparam[64];
    const double good = options.single ? 1e-6 : 1e-14, wanted = 100 * good;
    const bool may_repeat = options.exponent == 0 && options.refine == 0;
    const auto start = std::chrono::steady_clock::now();
    int64_t error = solve_system(options, a, &s, &type, iparam);
    const bool poor = error == -4 || (error == 0 && !(backward_error(s, options.transpose) <= good));
    if (may_repeat && poor && type != 2 && type != 4) {
        choose_careful_parameters(&options);
        error = solve_system(options, a, &s, &type, iparam);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (error != 0) {
        std::fprintf(stderr, "%s: the solver returned error %" PRId64 "\n", options.matrix.c_str(), error);
        return 1;
    }
    const double achieved = backward_error(s, options.transpose);
    print_result(s, options, type, iparam, seconds, achieved);
    if (!options.output.empty() && !write_market_vector(options.output, s.x, s.is_complex, &message)) {
        std::fprintf(stderr, "%s\n", message.c_str());
        return 1;
    }
    if (achieved <= wanted) return 0;
    std::fprintf(stderr, "%s: the backward error is above %.0e\n", options.matrix.c_str(), wanted);
    return 2;
}

} // namespace

void add_solve_command(CLI::App *program, int *status)
{
    const auto options = std::make_shared<solve_options>();
    CLI::App *command = program->add_subcommand("solve", "Solve a linear system and report the backward error");
    command->add_option("matrix", options->matrix, "Matrix Market file")->required();
    command->add_option("-b,--right-side", options->right_side, "Right-hand side, a file of one column; without it, A times ones");
    command->add_option("-o,--output", options->output, "Where the solution goes, '-' for the standard output; without it, nowhere");
    command->add_option("-t,--type", options->type, "Matrix type; without it, found from the file, definite types first")
        ->check(CLI::IsMember({1, 2, -2, 3, 4, -4, 6, 11, 13}));
    command->add_option("-m,--method", options->method, "Ordering: auto (by the size), parallel (nested dissection on all threads), degree")
        ->check(CLI::IsMember({"auto", "parallel", "degree"}));
    command->add_option("-r,--refine", options->refine, "Refinement steps; negative: with residuals in extended precision");
    command->add_option("-e,--exponent", options->exponent, "A pivot below 10 to minus this is replaced; without it, the library's choice")
        ->check(CLI::Range(1, 300));
    command->add_flag("--single", options->single, "Single precision");
    command->add_flag("--transpose", options->transpose, "Solve with the transpose (not conjugated)");
    command->add_flag("--plain", options->plain, "Without matching and scaling");
    command->add_flag("-q,--quiet", options->quiet, "Without the report of the library");
    command->callback([options, status] { *status = run_solve(*options); });
}
