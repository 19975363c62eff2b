#include "assembly.h"
#include "generators.h"

#include <array>
#include <cmath>

namespace
{

using element_matrix = std::array<std::array<double, 24>, 24>;

/* Derivatives of the 8 trilinear shape functions of the unit brick at a point (0..1 in each direction); node k sits at its bits x, y, z. */
std::array<std::array<double, 3>, 8> shape_gradients(const std::array<double, 3> &point)
{
    std::array<std::array<double, 3>, 8> gradient;
    for (size_t k = 0; k < 8; ++k) {
        for (size_t d = 0; d < 3; ++d) {
            double product = 1.0;
            for (size_t e = 0; e < 3; ++e) {
                const bool far = (k >> e & 1) != 0;
                if (e == d)
                    product *= far ? 1.0 : -1.0;
                else
                    product *= far ? point[e] : 1.0 - point[e];
            }
            gradient[k][d] = product;
        }
    }
    return gradient;
}

/* K = integral of B' D B over the brick by 2 x 2 x 2 Gauss points, written with the Lame constants:
   lambda g_p h_q + mu (g_q h_p + delta_pq g . h) for gradients g, h of the two nodes and components p, q. */
element_matrix brick_stiffness()
{
    const double young = 1.0, poisson = 0.3;
    const double lambda = young * poisson / ((1.0 + poisson) * (1.0 - 2.0 * poisson)), mu = young / (2.0 * (1.0 + poisson));
    element_matrix k = {};
    for (int corner = 0; corner < 8; ++corner) {
        std::array<double, 3> point;
        for (int d = 0; d < 3; ++d) point[static_cast<size_t>(d)] = 0.5 + ((corner >> d & 1) != 0 ? 0.5 : -0.5) / std::sqrt(3.0);
        const auto gradient = shape_gradients(point);
        for (size_t s = 0; s < 24; ++s) {
            for (size_t t = 0; t < 24; ++t) {
                const auto &g = gradient[s / 3], &h = gradient[t / 3];
                const size_t p = s % 3, q = t % 3;
                const double shear = p == q ? g[0] * h[0] + g[1] * h[1] + g[2] * h[2] : 0.0;
                k[s][t] += (lambda * g[p] * h[q] + mu * (g[q] * h[p] + shear)) / 8.0;
            }
        }
    }
    return k;
}

} // namespace

market_matrix elasticity(int64_t nx, int64_t ny, int64_t nz)
{
    const element_matrix k = brick_stiffness();
    assembly s;
    /* Unknown of component d at node (x, y, z), x from 0 (fixed, below 1) to nx. */
    const auto unknown = [&](int64_t x, int64_t y, int64_t z, int64_t d) { return x == 0 ? 0 : 3 * (x - 1 + nx * (y + ny * z)) + d + 1; };
    for (int64_t z = 0; z + 1 < nz; ++z) {
        for (int64_t y = 0; y + 1 < ny; ++y) {
            for (int64_t x = 0; x < nx; ++x) {
                std::array<int64_t, 24> number;
                for (int64_t t = 0; t < 24; ++t) {
                    const int64_t node = t / 3;
                    number[static_cast<size_t>(t)] = unknown(x + (node & 1), y + (node >> 1 & 1), z + (node >> 2), t % 3);
                }
                for (size_t r = 0; r < 24; ++r) {
                    for (size_t c = 0; c < 24; ++c) {
                        if (number[c] > 0 && number[r] >= number[c]) add(&s, number[r], number[c], k[r][c]);
                    }
                }
            }
        }
    }
    return assembled(s, 3 * nx * ny * nz, market_field::real, market_symmetry::symmetric);
}
