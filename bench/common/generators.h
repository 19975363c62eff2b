/* The generated matrices that all benchmarks share. All are square, 1-based, repeatable (fixed seeds), in the record of the Matrix Market
   reader: a matrix with symmetry holds its lower triangle; market_transpose gives the upper triangle (or the transpose of a general
   matrix), market_expand the whole. Grid points are numbered x first. */
#pragma once

#include "matrix_market.h"

/* ---- real symmetric positive definite ---- */
market_matrix grid_2d_5(int64_t nx, int64_t ny);              /* Laplacian, zero boundary */
market_matrix grid_3d_7(int64_t nx, int64_t ny, int64_t nz);  /* the same in three dimensions */
market_matrix grid_3d_27(int64_t nx, int64_t ny, int64_t nz); /* all neighbours of the cube: diagonal 26, the others -1 */
market_matrix elasticity(int64_t nx, int64_t ny, int64_t nz); /* 3 nx ny nz unknowns: linear elasticity on 8-node bricks, face x = 0 fixed;
                                                                 Young's modulus 1, Poisson's ratio 0.3, unit edges; ny, nz >= 2 */

/* ---- real symmetric indefinite ---- */
market_matrix saddle_point(int64_t n); /* [H A'; A 0] with n rows, a third of them constraints of full rank */

/* ---- real unsymmetric ---- */
enum class difference { upwind, central };
market_matrix convection_3d(int64_t nx, int64_t ny, int64_t nz, double peclet, difference scheme); /* diffusion and a rotating flow;
                                                                                                      `peclet` is that of a cell */
market_matrix circuit(int64_t n); /* nodal analysis with hubs: conductances, controlled sources, and 2 % voltage sources (zero diagonals) */

/* ---- complex ---- */
market_matrix helmholtz_3d(int64_t nx, int64_t ny, int64_t nz);          /* complex symmetric: shifted Laplacian with damping */
market_matrix hermitian_3d(int64_t nx, int64_t ny, int64_t nz);          /* Hermitian indefinite: hopping in a magnetic field */
market_matrix convection_complex_3d(int64_t nx, int64_t ny, int64_t nz); /* complex unsymmetric: convection with an imaginary shift */
