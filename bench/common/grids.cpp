#include "assembly.h"
#include "generators.h"

#include <cmath>
#include <numbers>

namespace
{

struct box {
    int64_t nx, ny, nz;
};

/* Call work(x, y, z, number) for each point; coordinates count from 0, numbers from 1. */
template <typename work_t>
void for_each_point(const box &b, const work_t &work)
{
    int64_t number = 0;
    for (int64_t z = 0; z < b.nz; ++z) {
        for (int64_t y = 0; y < b.ny; ++y) {
            for (int64_t x = 0; x < b.nx; ++x) work(x, y, z, ++number);
        }
    }
}

market_matrix seven_points(const box &b, double diagonal)
{
    assembly s;
    for_each_point(b, [&](int64_t x, int64_t y, int64_t z, int64_t i) {
        if (z > 0) add(&s, i, i - b.nx * b.ny, -1.0);
        if (y > 0) add(&s, i, i - b.nx, -1.0);
        if (x > 0) add(&s, i, i - 1, -1.0);
        add(&s, i, i, diagonal);
    });
    return assembled(s, b.nx * b.ny * b.nz, market_field::real, market_symmetry::symmetric);
}

/* Real values become (value, 0). */
void widen(market_matrix *a)
{
    std::vector<double> pairs;
    pairs.reserve(2 * a->value.size());
    for (const double v : a->value) pairs.insert(pairs.end(), {v, 0.0});
    a->value = std::move(pairs);
    a->field = market_field::complex;
}

void shift_diagonal(market_matrix *a, double real, double imaginary)
{
    for (size_t i = 0; i < static_cast<size_t>(a->rows); ++i) {
        for (auto k = static_cast<size_t>(a->ia[i] - 1); k < static_cast<size_t>(a->ia[i + 1] - 1); ++k) {
            if (a->ja[k] != static_cast<int64_t>(i) + 1) continue;
            a->value[2 * k] += real;
            a->value[2 * k + 1] += imaginary;
        }
    }
}

} // namespace

market_matrix grid_2d_5(int64_t nx, int64_t ny)
{
    return seven_points({nx, ny, 1}, 4.0);
}

market_matrix grid_3d_7(int64_t nx, int64_t ny, int64_t nz)
{
    return seven_points({nx, ny, nz}, 6.0);
}

market_matrix grid_3d_27(int64_t nx, int64_t ny, int64_t nz)
{
    assembly s;
    for_each_point({nx, ny, nz}, [&](int64_t x, int64_t y, int64_t z, int64_t i) {
        for (int64_t dz = -1; dz <= 0; ++dz) {
            for (int64_t dy = -1; dy <= 1; ++dy) {
                for (int64_t dx = -1; dx <= 1; ++dx) {
                    const int64_t j = i + dx + nx * (dy + ny * dz);
                    const bool inside = x + dx >= 0 && x + dx < nx && y + dy >= 0 && y + dy < ny && z + dz >= 0;
                    if (inside && j <= i) add(&s, i, j, j == i ? 26.0 : -1.0);
                }
            }
        }
    });
    return assembled(s, nx * ny * nz, market_field::real, market_symmetry::symmetric);
}

market_matrix convection_3d(int64_t nx, int64_t ny, int64_t nz, double peclet, difference scheme)
{
    assembly s;
    for_each_point({nx, ny, nz}, [&](int64_t x, int64_t y, int64_t z, int64_t i) {
        /* A vortex around the z axis that also rises; |flow| at most about `peclet`, times the diffusion over the cell width. */
        const double u = 2.0 * (static_cast<double>(x) + 0.5) / static_cast<double>(nx) - 1.0;
        const double v = 2.0 * (static_cast<double>(y) + 0.5) / static_cast<double>(ny) - 1.0;
        const double flow[3] = {-peclet * v, peclet * u, 0.5 * peclet};
        const int64_t step[3] = {1, nx, nx * ny};
        const bool below[3] = {x > 0, y > 0, z > 0}, above[3] = {x + 1 < nx, y + 1 < ny, z + 1 < nz};
        double diagonal = 0.0;
        for (int d = 0; d < 3; ++d) {
            const double w = flow[d];
            const double left = scheme == difference::upwind ? -1.0 - std::fmax(w, 0.0) : -1.0 - 0.5 * w;
            const double right = scheme == difference::upwind ? -1.0 + std::fmin(w, 0.0) : -1.0 + 0.5 * w;
            diagonal += 2.0 + (scheme == difference::upwind ? std::fabs(w) : 0.0);
            if (below[d]) add(&s, i, i - step[d], left);
            if (above[d]) add(&s, i, i + step[d], right);
        }
        add(&s, i, i, diagonal);
    });
    return assembled(s, nx * ny * nz, market_field::real, market_symmetry::general);
}

market_matrix helmholtz_3d(int64_t nx, int64_t ny, int64_t nz)
{
    market_matrix a = grid_3d_7(nx, ny, nz);
    widen(&a);
    shift_diagonal(&a, -0.4, 0.05); /* about ten points a wave length, so that the real part is indefinite, and some damping */
    return a;
}

market_matrix hermitian_3d(int64_t nx, int64_t ny, int64_t nz)
{
    market_matrix a = grid_3d_7(nx, ny, nz);
    widen(&a);
    a.symmetry = market_symmetry::hermitian;
    const double flux = 2.0 * std::numbers::pi * 0.1; /* phase of a step in x, for each row of y */
    for (size_t i = 0; i < static_cast<size_t>(a.rows); ++i) {
        const double phase = flux * static_cast<double>(static_cast<int64_t>(i) / nx % ny);
        for (auto k = static_cast<size_t>(a.ia[i] - 1); k < static_cast<size_t>(a.ia[i + 1] - 1); ++k) {
            if (nx == 1 || a.ja[k] != static_cast<int64_t>(i)) continue; /* the neighbour in x has the number before */
            a.value[2 * k] = -std::cos(phase);
            a.value[2 * k + 1] = -std::sin(phase);
        }
    }
    shift_diagonal(&a, -1.5, 0.0);
    return a;
}

market_matrix convection_complex_3d(int64_t nx, int64_t ny, int64_t nz)
{
    market_matrix a = convection_3d(nx, ny, nz, 1.0, difference::upwind);
    widen(&a);
    shift_diagonal(&a, -0.3, 0.5);
    return a;
}
