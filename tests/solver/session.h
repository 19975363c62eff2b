/* A host of the solver in a few lines: a handle, its parameters and a small system, and calls by ido. */
#pragma once

#include <complex>
#include <cstdint>
#include <string>
#include <vector>

#include "output_capture.h"
#include "service/service.h"
#include "solver/solver.h"
#include "state/iparam.h"

inline service_memory memory_in_use()
{
    service_memory now;
    service_memory_statistics(&now);
    return now;
}

struct sparse_pattern {
    int64_t n = 0;
    std::vector<int64_t> ia, ja; /* 1-based */
};

/* One solver session. Values are doubles, pairs of them for complex types, floats in single precision (filled through store()). */
struct session {
    void *handle[64] = {};
    int64_t max_fac_store = 1, matrix_number = 1, matrix_type = 2, neqns = 0, nb = 1, msglvl = 0, error = 777;
    std::vector<int64_t> ia, ja, perm;
    std::vector<std::complex<double>> values, rhs; /* as told, whatever the precision */
    std::vector<unsigned char> a, b, x;            /* as passed */
    int64_t iparam[iparam_count] = {};

    int64_t &parameter(iparam_position position)
    {
        return iparam_at(iparam, position);
    }
    bool is_complex() const
    {
        return matrix_type == 3 || matrix_type == 4 || matrix_type == -4 || matrix_type == 6 || matrix_type == 13;
    }

    template <typename real_t>
    static void pack_as(const std::vector<std::complex<double>> &from, bool pairs, std::vector<unsigned char> *to)
    {
        std::vector<real_t> flat;
        for (const auto &v : from) {
            flat.push_back(static_cast<real_t>(v.real()));
            if (pairs) flat.push_back(static_cast<real_t>(v.imag()));
        }
        const auto *bytes = reinterpret_cast<const unsigned char *>(flat.data());
        to->assign(bytes, bytes + flat.size() * sizeof(real_t));
    }
    void pack(const std::vector<std::complex<double>> &from, std::vector<unsigned char> *to)
    {
        if (parameter(iparam_single_precision) == 1)
            pack_as<float>(from, is_complex(), to);
        else
            pack_as<double>(from, is_complex(), to);
    }
    /* Put values and right-hand sides into the arrays that a call passes; x is poisoned. */
    void load()
    {
        pack(values, &a);
        pack(rhs, &b);
        x.assign(b.size(), 0xff);
    }
    std::vector<std::complex<double>> unpack(const std::vector<unsigned char> &from)
    {
        const bool single = parameter(iparam_single_precision) == 1, pairs = is_complex();
        const size_t real_bytes = single ? 4 : 8, step = real_bytes * (pairs ? 2 : 1);
        std::vector<std::complex<double>> result;
        for (size_t at = 0; at + step <= from.size(); at += step) {
            const auto real_at = [&](size_t place) {
                return single ? static_cast<double>(*reinterpret_cast<const float *>(&from[place]))
                              : *reinterpret_cast<const double *>(&from[place]);
            };
            result.emplace_back(real_at(at), pairs ? real_at(at + real_bytes) : 0.0);
        }
        return result;
    }

    int64_t call(int64_t ido)
    {
        error = 777;
        solver_entry(handle, &max_fac_store, &matrix_number, &matrix_type, &ido, &neqns, a.data(), ia.data(), ja.data(), perm.data(), &nb,
                     iparam, &msglvl, b.data(), x.data(), &error);
        return error;
    }
    std::string printed(int64_t ido)
    {
        output_capture capture;
        call(ido);
        return capture.text();
    }
    void to_zero_based()
    {
        for (int64_t &i : ia) --i;
        for (int64_t &j : ja) --j;
        parameter(iparam_zero_based) = 1;
    }

    session() = default;
    session(const session &) = delete;
    session &operator=(const session &) = delete;
    ~session()
    {
        call(-1);
    }
};

inline bool stores_upper_triangle(int64_t matrix_type)
{
    return matrix_type % 2 == 0;
}

/* Five-point grid of side times side points in the form of the type: the upper triangle, or everything with values that are not
   symmetric (11, 13) or not even nearly (1, 3 keep the pattern alone). Diagonally dominant; definite where the type says so. */
inline void load_grid(session *s, int64_t matrix_type, int64_t side, int64_t nb = 1)
{
    const int64_t n = side * side;
    s->matrix_type = matrix_type;
    s->neqns = n;
    s->nb = nb;
    s->ia.assign(1, 1);
    s->ja.clear();
    s->values.clear();
    const bool upper = stores_upper_triangle(matrix_type), indefinite = matrix_type == -2 || matrix_type == -4 || matrix_type == 6;
    const bool pairs = s->is_complex(), real_diagonal = matrix_type == 4 || matrix_type == -4;
    for (int64_t i = 0; i < n; ++i) {
        const int64_t neighbours[] = {i - side, i % side > 0 ? i - 1 : -1, i, i % side < side - 1 ? i + 1 : -1, i + side};
        for (const int64_t j : neighbours) {
            if (j < 0 || j >= n || (upper && j < i)) continue;
            const double sign = indefinite && i % 3 == 0 ? -1.0 : 1.0;
            const double re = i == j ? sign * (6.0 + 0.01 * static_cast<double>(i % 7)) : upper ? -1.0 : (j > i ? -1.0 : -0.5);
            const double im = !pairs || (i == j && real_diagonal) ? 0.0 : 0.25;
            s->ja.push_back(j + 1);
            s->values.emplace_back(re, im);
        }
        s->ia.push_back(static_cast<int64_t>(s->ja.size()) + 1);
    }
    s->rhs.clear();
    for (int64_t k = 0; k < n * nb; ++k) s->rhs.emplace_back(1.0 + static_cast<double>(k % 5), pairs ? 0.5 : 0.0);
    s->perm.assign(static_cast<size_t>(n), 0);
    s->load();
}

/* Largest of |b - A x| / (|A| |x| + |b|) over all right-hand sides; ia, ja 1-based. A NaN comes out as infinity. */
inline double backward_error(session *s, const std::vector<std::complex<double>> &x)
{
    const bool upper = stores_upper_triangle(s->matrix_type), hermitian = s->matrix_type == 4 || s->matrix_type == -4;
    double worst = 0.0;
    for (int64_t c = 0; c < s->nb; ++c) {
        const size_t base = static_cast<size_t>(c * s->neqns);
        std::vector<std::complex<double>> product(static_cast<size_t>(s->neqns));
        double norm = 0.0, largest_x = 0.0, largest_b = 0.0, largest_r = 0.0;
        for (int64_t i = 0; i < s->neqns; ++i) {
            for (int64_t p = s->ia[static_cast<size_t>(i)]; p < s->ia[static_cast<size_t>(i) + 1]; ++p) {
                const int64_t j = s->ja[static_cast<size_t>(p) - 1] - 1;
                const std::complex<double> v = s->values[static_cast<size_t>(p) - 1];
                product[static_cast<size_t>(i)] += v * x[base + static_cast<size_t>(j)];
                if (upper && i != j) product[static_cast<size_t>(j)] += (hermitian ? std::conj(v) : v) * x[base + static_cast<size_t>(i)];
                norm = std::max(norm, std::abs(v));
            }
        }
        for (int64_t i = 0; i < s->neqns; ++i) {
            const double residual = std::abs(s->rhs[base + static_cast<size_t>(i)] - product[static_cast<size_t>(i)]);
            if (!(residual < 1e300)) return 1e300;
            largest_r = std::max(largest_r, residual);
            largest_x = std::max(largest_x, std::abs(x[base + static_cast<size_t>(i)]));
            largest_b = std::max(largest_b, std::abs(s->rhs[base + static_cast<size_t>(i)]));
        }
        worst = std::max(worst, largest_r / (norm * largest_x + largest_b));
    }
    return worst;
}
