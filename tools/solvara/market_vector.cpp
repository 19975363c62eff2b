#include "matrix_market.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

bool write_market_vector(const std::string &path, const std::vector<double> &value, bool is_complex, std::string *error)
{
    FILE *file = path == "-" ? stdout : std::fopen(path.c_str(), "w");
    bool good = file != nullptr;
    if (good) {
        const size_t width = is_complex ? 2 : 1, n = value.size() / width;
        std::fprintf(file, "%%%%MatrixMarket matrix array %s general\n%zu 1\n", is_complex ? "complex" : "real", n);
        for (size_t i = 0; i < n; ++i) {
            std::fprintf(file, "%.17g", value[i * width]);
            if (is_complex) std::fprintf(file, " %.17g", value[i * width + 1]);
            std::fputc('\n', file);
        }
        good = std::fflush(file) == 0 && std::ferror(file) == 0;
    }
    if (!good) *error = path + ": " + std::strerror(errno);
    if (file != nullptr && file != stdout) std::fclose(file);
    return good;
}

bool read_market_vector(const std::string &path, int64_t n, std::vector<double> *value, bool *is_complex, std::string *error)
{
    market_matrix a;
    if (!read_matrix_market(path, &a, error)) return false;
    a = market_expand(a);
    if (a.rows != n || a.columns != 1) {
        *error = path + ": expected " + std::to_string(n) + " rows and one column";
        return false;
    }
    *is_complex = a.field == market_field::complex;
    const size_t width = *is_complex ? 2 : 1;
    value->assign(static_cast<size_t>(n) * width, 0.0);
    for (size_t i = 0; i < static_cast<size_t>(n); ++i) {
        const size_t k = static_cast<size_t>(a.ia[i] - 1);
        if (a.ia[i + 1] == a.ia[i]) continue; /* a zero */
        for (size_t c = 0; c < width; ++c) (*value)[i * width + c] = a.value[k * width + c];
    }
    return true;
}
