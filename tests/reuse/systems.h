/* Generated systems of every matrix type for sessions, and the error of a solution of op(A) x = b. */
#pragma once

#include <algorithm>
#include <cmath>
#include <map>
#include <random>

#include "service/thread_record.h"
#include "session.h"
#include "solver/control.h"

inline constexpr int64_t all_matrix_types[] = {1, 2, -2, 3, 4, -4, 6, 11, 13};

/* Threads of the solver from here on, up to the processors of the machine. */
inline void use_threads(int32_t threads)
{
    service_max_threads();
    service_threads.domain[domain_solver - 1] = threads;
}

/* Entries by row and column, both from 0, of the whole matrix. */
using entry_map = std::map<std::pair<int64_t, int64_t>, std::complex<double>>;

/* Points of an nx by ny by nz grid with their 6 neighbours and some far ones; symmetric, Hermitian, or only so in pattern, as the type
   asks. Well conditioned: rows are dominated by their diagonal; or (indefinite types) some, with a zero diagonal, by the entry between two
   points, where only a 2 by 2 pivot serves; or (11, 13) by an entry next to the diagonal. twins: two such points have the same neighbours,
   so that they come together even without matching. */
inline entry_map generated_entries(int64_t type, int64_t nx, int64_t ny, int64_t nz, unsigned seed, bool twins = true)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> u(-1, 1);
    const int64_t n = nx * ny * nz;
    const bool pairs = type == 3 || type == 4 || type == -4 || type == 6 || type == 13, symmetric = type % 2 == 0;
    const bool hermitian = type == 4 || type == -4, indefinite = type == -2 || type == -4 || type == 6;
    entry_map a;
    const auto value = [&] { return std::complex<double>(u(random), pairs ? u(random) : 0.0); };
    const auto partner = [&](int64_t i) {
        const int64_t first = i % 10 == 4 ? i - 1 : i;
        return !indefinite || first % 10 != 3 || first + 1 >= n ? i : first == i ? i + 1 : first;
    };
    const auto join = [&](int64_t i, int64_t j) {
        const auto v = value();
        a[{i, j}] = v;
        a[{j, i}] = !symmetric ? value() : hermitian ? std::conj(v) : v;
    };
    const auto connect = [&](int64_t i, int64_t j) {
        if (i == j || j >= n || j == partner(i)) return;
        if (!twins) return join(i, j);
        for (const int64_t one : {i, partner(i)})
            for (const int64_t other : {j, partner(j)}) join(one, other);
    };
    for (int64_t i = 0; i < n; ++i) {
        if (i % nx + 1 < nx) connect(i, i + 1);
        if (i / nx % ny + 1 < ny) connect(i, i + nx);
        connect(i, i + nx * ny);
        if (i % 16 == 0) connect(i, static_cast<int64_t>(random() % static_cast<uint64_t>(n)));
    }
    std::vector<double> sum(static_cast<size_t>(n));
    for (const auto &[place, v] : a) sum[static_cast<size_t>(place.first)] += std::abs(v);
    for (int64_t i = 0; i < n; ++i) {
        const double sign = indefinite && u(random) < 0 ? -1.0 : 1.0;
        std::complex<double> d = sign * (1.5 * sum[static_cast<size_t>(i)] + 1.0);
        if (pairs && !hermitian) d *= std::polar(1.0, 0.3 * u(random));
        if (partner(i) > i) {
            const std::complex<double> off(2 * (sum[static_cast<size_t>(i)] + sum[static_cast<size_t>(i + 1)]), pairs ? 0.5 : 0.0);
            a[{i, i}] = a[{i + 1, i + 1}] = 0.0;
            a[{i, i + 1}] = off;
            a[{i + 1, i}] = hermitian ? std::conj(off) : off;
        }
        if (partner(i) != i) continue;
        a[{i, i}] = d;
    }
    if (type != 11 && type != 13) return a;
    entry_map moved; /* rows i and i + 1 of every third pair change places: the large entries leave the diagonal */
    for (const auto &[place, v] : a) {
        const int64_t i = place.first, row = i % 6 < 2 && (i | 1) < n ? i ^ 1 : i;
        moved[{row, place.second}] = v;
    }
    return moved;
}

/* Put the entries into a session, the upper triangle alone for symmetric types, with right-hand sides of its own. Diagonal entries that
   are missing stay so. */
inline void load_entries(session *s, int64_t type, int64_t n, const entry_map &a, int64_t nb, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> u(-1, 1);
    s->matrix_type = type;
    s->neqns = n;
    s->nb = nb;
    s->ia.assign(static_cast<size_t>(n) + 1, 0);
    s->ja.clear();
    s->values.clear();
    for (const auto &[place, v] : a) {
        if (stores_upper_triangle(type) && place.second < place.first) continue;
        ++s->ia[static_cast<size_t>(place.first) + 1];
        s->ja.push_back(place.second + 1);
        s->values.push_back(v);
    }
    s->ia[0] = 1;
    for (size_t i = 1; i < s->ia.size(); ++i) s->ia[i] += s->ia[i - 1];
    s->rhs.clear();
    for (int64_t k = 0; k < n * nb; ++k) s->rhs.emplace_back(u(random), s->is_complex() ? u(random) : 0.0);
    s->perm.assign(static_cast<size_t>(n), 0);
    s->load();
}

/* What iparam(12) makes of an entry: 0 A, 1 A', 2 conj(A)', 3 conj(A). */
inline int64_t applied_form(int64_t type, int64_t request)
{
    if (type == 1 || type == 11) return request != 0 ? 1 : 0;
    if (type == 3 || type == 13) return request == 1 ? 2 : request == 2 ? 1 : 0;
    if (type == 4 || type == -4) return request == 2 ? 3 : 0;
    return type == 6 && request == 1 ? 3 : 0;
}

/* Largest |b - op(A) x| / (|A| |x| + |b|) in the maximum norms over the right-hand sides; a NaN comes out as 1e300. */
inline double backward_error(const entry_map &a, int64_t form, int64_t n, const std::vector<std::complex<double>> &b,
                             const std::vector<std::complex<double>> &x)
{
    double worst = 0;
    const size_t rows = static_cast<size_t>(n);
    for (size_t at = 0; at < b.size(); at += rows) {
        std::vector<std::complex<double>> r(b.begin() + static_cast<std::ptrdiff_t>(at),
                                            b.begin() + static_cast<std::ptrdiff_t>(at + rows));
        std::vector<double> sum(rows);
        double norm_x = 0, norm_b = 0, norm_r = 0;
        for (size_t i = 0; i < rows; ++i) norm_b = std::max(norm_b, std::abs(r[i])), norm_x = std::max(norm_x, std::abs(x[at + i]));
        for (const auto &[place, entry] : a) {
            const bool turned = form == 1 || form == 2;
            const size_t i = static_cast<size_t>(turned ? place.second : place.first);
            const size_t j = static_cast<size_t>(turned ? place.first : place.second);
            r[i] -= (form >= 2 ? std::conj(entry) : entry) * x[at + j];
            sum[i] += std::abs(entry);
        }
        for (size_t i = 0; i < rows; ++i) {
            if (!(std::abs(r[i]) < 1e300)) return 1e300;
            norm_r = std::max(norm_r, std::abs(r[i]));
        }
        worst = std::max(worst, norm_r / (*std::max_element(sum.begin(), sum.end()) * norm_x + norm_b));
    }
    return worst;
}
