/* Time steps of a heat equation with a nonlinear sink on a cube, u' = div grad u - u^3: each step solves a system whose matrix has changed
   a little. It is solved twice: with a factorization in every step, and with iparam(4), where the factors of an earlier step serve as
   preconditioner of an iteration and the library factors anew only when that no longer pays. Prints both times.

       cc newton_reuse.c $(pkg-config --cflags --libs wkldriver) -lm -o newton_reuse && ./newton_reuse 30 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <wkldriver.h>

enum { time_steps = 30 };

struct grid {
    int64_t side, n, *ia, *ja;
    double *a; /* upper triangle, diagonal first */
};

static double seconds(void)
{
    struct timespec t;
    timespec_get(&t, TIME_UTC);
    return (double)t.tv_sec + 1e-9 * (double)t.tv_nsec;
}

static int make_grid(int64_t side, struct grid *g)
{
    const int64_t n = side * side * side, step[] = {1, side, side * side};
    int64_t at = 0;
    g->side = side;
    g->n = n;
    g->ia = malloc((size_t)(n + 1) * sizeof(int64_t));
    g->ja = malloc((size_t)(4 * n) * sizeof(int64_t));
    g->a = malloc((size_t)(4 * n) * sizeof(double));
    if (g->ia == NULL || g->ja == NULL || g->a == NULL) return 0;
    for (int64_t i = 0; i < n; ++i) {
        g->ia[i] = at + 1;
        g->ja[at++] = i + 1;
        for (int k = 0; k < 3; ++k) {
            if (i / step[k] % side + 1 == side) continue;
            g->a[at] = -1.0;
            g->ja[at++] = i + step[k] + 1;
        }
    }
    g->ia[n] = at + 1;
    return 1;
}

/* One step from u: (1 / dt + L + 3 u^2) d = -(L u + u^3). */
static void assemble(const struct grid *g, const double *u, double dt, double *b)
{
    for (int64_t i = 0; i < g->n; ++i) {
        g->a[g->ia[i] - 1] = 1.0 / dt + 6.0 + 3.0 * u[i] * u[i];
        b[i] = -6.0 * u[i] - u[i] * u[i] * u[i];
    }
    for (int64_t i = 0; i < g->n; ++i) {
        for (int64_t p = g->ia[i]; p < g->ia[i + 1] - 1; ++p) {
            b[i] += u[g->ja[p] - 1];
            b[g->ja[p] - 1] += u[i];
        }
    }
}

/* All steps; hybrid is the value of iparam(4). Returns the seconds they took, or a negative number. */
static double run(const struct grid *g, int64_t hybrid, double *u, double *b, double *x, int64_t *iterations)
{
    void *handle[64] = {0};
    int64_t iparam[64] = {0}; /* iparam(1) is 0: the first call fills in the defaults */
    int64_t one = 1, type = 2, silent = 0, error = 0, ido = 13, release = -1;
    double start = 0.0;
    *iterations = 0;
    for (int64_t i = 0; i < g->n; ++i) u[i] = 1.0 + sin(0.01 * (double)i);
    for (int k = 0; k <= time_steps && error == 0; ++k) {
        assemble(g, u, 0.5, b);
        solvara_driver(handle, &one, &one, &type, &ido, &g->n, g->a, g->ia, g->ja, NULL, &one, iparam, &silent, b, x, &error);
        for (int64_t i = 0; i < g->n; ++i) u[i] += x[i];
        if (iparam[19] > 0) *iterations += iparam[19];
        if (k > 0) continue;
        start = seconds(); /* the analysis and a first factorization are common to both ways */
        iparam[3] = hybrid;
        ido = 23;
    }
    start = seconds() - start;
    if (error != 0) fprintf(stderr, "solvara_driver: error %lld\n", (long long)error);
    const int64_t failed = error;
    solvara_driver(handle, &one, &one, &type, &release, &g->n, NULL, NULL, NULL, NULL, &one, iparam, &silent, NULL, NULL, &error);
    return failed != 0 ? -1.0 : start;
}

int main(int argc, char **argv)
{
    const int64_t side = argc > 1 ? atoll(argv[1]) : 30;
    struct grid g;
    if (side < 2 || side > 200 || !make_grid(side, &g)) return 2;
    double *u = malloc((size_t)g.n * sizeof(double)), *v = malloc((size_t)g.n * sizeof(double));
    double *b = malloc((size_t)g.n * sizeof(double)), *x = malloc((size_t)g.n * sizeof(double));
    if (u == NULL || v == NULL || b == NULL || x == NULL) return 2;
    int64_t none = 0, iterations = 0;
    const double factored = run(&g, 0, u, b, x, &none);
    const double reused = run(&g, 62, v, b, x, &iterations); /* conjugate gradients (2) to 1e-6 */
    double difference = 0.0;
    for (int64_t i = 0; i < g.n; ++i) difference = fmax(difference, fabs(u[i] - v[i]));
    printf("%lld unknowns, %d steps\n", (long long)g.n, time_steps);
    printf("factoring in each step   %8.3f s\n", factored);
    printf("reusing old factors      %8.3f s, %lld iterations, %.2f times as fast\n", reused, (long long)iterations, factored / reused);
    printf("largest difference of the two ends: %.1e\n", difference);
    free(g.ia), free(g.ja), free(g.a), free(u), free(v), free(b), free(x);
    return factored > 0 && reused > 0 && difference < 1e-5 ? 0 : 1;
}
