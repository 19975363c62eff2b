/* Some unknowns only: the points on one face of a cube are marked before the analysis, which then places them last in the ordering, and a
   solve with a window stops its backward sweep behind them. Compares them with a full solve on the same factors and prints both times.

       cc partial.c $(pkg-config --cflags --libs wkldriver) -lm -o partial && ./partial 30 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <wkldriver.h>

static double seconds(void)
{
    struct timespec t;
    timespec_get(&t, TIME_UTC);
    return (double)t.tv_sec + 1e-9 * (double)t.tv_nsec;
}

/* Upper triangle of the 7-point difference matrix. */
static void fill_grid(int64_t side, int64_t *ia, int64_t *ja, double *a)
{
    const int64_t n = side * side * side, step[] = {1, side, side * side};
    int64_t at = 0;
    for (int64_t i = 0; i < n; ++i) {
        ia[i] = at + 1;
        a[at] = 6.0;
        ja[at++] = i + 1;
        for (int k = 0; k < 3; ++k) {
            if (i / step[k] % side + 1 == side) continue;
            a[at] = -1.0;
            ja[at++] = i + step[k] + 1;
        }
    }
    ia[n] = at + 1;
}

int main(int argc, char **argv)
{
    const int64_t side = argc > 1 ? atoll(argv[1]) : 30, n = side * side * side;
    if (side < 3 || side > 200) return 2;
    int64_t *ia = malloc((size_t)(n + 1) * sizeof(int64_t)), *ja = malloc((size_t)(4 * n) * sizeof(int64_t));
    int64_t *perm = malloc((size_t)n * sizeof(int64_t));
    double *a = malloc((size_t)(4 * n) * sizeof(double)), *b = malloc((size_t)n * sizeof(double));
    double *part = malloc((size_t)n * sizeof(double)), *full = malloc((size_t)n * sizeof(double));
    if (ia == NULL || ja == NULL || perm == NULL || a == NULL || b == NULL || part == NULL || full == NULL) return 2;
    fill_grid(side, ia, ja, a);
    for (int64_t i = 0; i < n; ++i) {
        b[i] = cos((double)i);
        part[i] = 0.0;
        perm[i] = i % side == 0 ? 1 : 0; /* 1 marks an unknown */
    }

    void *handle[64] = {0};
    int64_t iparam[64] = {0}, one = 1, type = 2, silent = 0, error = 0, ido = 12, release = -1;
    iparam[0] = 1;  /* our own parameters, not the defaults: */
    iparam[1] = 2;  /* nested dissection */
    iparam[30] = 3; /* window: the whole right-hand side goes in, the marked unknowns come out */
    solvara_driver(handle, &one, &one, &type, &ido, &n, a, ia, ja, perm, &one, iparam, &silent, b, part, &error);
    ido = 33;
    double start = seconds();
    if (error == 0) solvara_driver(handle, &one, &one, &type, &ido, &n, a, ia, ja, perm, &one, iparam, &silent, b, part, &error);
    const double partial_time = seconds() - start;
    iparam[30] = 0;
    start = seconds();
    if (error == 0) solvara_driver(handle, &one, &one, &type, &ido, &n, a, ia, ja, perm, &one, iparam, &silent, b, full, &error);
    const double full_time = seconds() - start;
    double difference = 0.0;
    for (int64_t i = 0; i < n; i += side) difference = fmax(difference, fabs(part[i] - full[i]));
    printf("%lld unknowns, %lld of them marked, code %lld\n", (long long)n, (long long)iparam[47], (long long)error);
    printf("full solve %.4f s, marked unknowns alone %.4f s, largest difference %.1e\n", full_time, partial_time, difference);
    const int64_t failed = error;
    solvara_driver(handle, &one, &one, &type, &release, &n, NULL, NULL, NULL, NULL, &one, iparam, &silent, NULL, NULL, &error);
    free(ia), free(ja), free(perm), free(a), free(b), free(part), free(full);
    return failed == 0 && difference < 1e-13 ? 0 : 1;
}
