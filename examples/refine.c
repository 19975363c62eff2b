/* An ill-conditioned system, the cube of the second difference matrix, whose solution is known: solved as it comes, with plain refinement,
   and with refinement in extended precision (a negative iparam(8)), which alone recovers all digits. Prints the three errors.

       cc refine.c $(pkg-config --cflags --libs wkldriver) -lm -o refine && ./refine 100 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wkldriver.h>

/* c = a * t, where t has 2 on the diagonal and -1 beside it. */
static void times_difference(int64_t n, const double *a, double *c)
{
    for (int64_t i = 0; i < n; ++i) {
        for (int64_t j = 0; j < n; ++j) {
            const double left = j > 0 ? a[i * n + j - 1] : 0.0, right = j + 1 < n ? a[i * n + j + 1] : 0.0;
            c[i * n + j] = 2.0 * a[i * n + j] - left - right;
        }
    }
}

/* Upper triangle of a dense matrix in compressed rows. */
static void compress(int64_t n, const double *dense, int64_t *ia, int64_t *ja, double *a)
{
    int64_t at = 0;
    for (int64_t i = 0; i < n; ++i) {
        ia[i] = at + 1;
        for (int64_t j = i; j < n; ++j) {
            if (dense[i * n + j] == 0.0) continue;
            a[at] = dense[i * n + j];
            ja[at++] = j + 1;
        }
    }
    ia[n] = at + 1;
}

int main(int argc, char **argv)
{
    const int64_t n = argc > 1 ? atoll(argv[1]) : 100;
    if (n < 8 || n > 200) return 2;
    double *dense = calloc((size_t)(n * n), sizeof(double)), *next = calloc((size_t)(n * n), sizeof(double));
    double *a = malloc((size_t)(4 * n) * sizeof(double)), *b = malloc((size_t)n * sizeof(double)), *x = malloc((size_t)n * sizeof(double));
    int64_t *ia = malloc((size_t)(n + 1) * sizeof(int64_t)), *ja = malloc((size_t)(4 * n) * sizeof(int64_t));
    if (dense == NULL || next == NULL || a == NULL || b == NULL || x == NULL || ia == NULL || ja == NULL) return 2;
    for (int64_t i = 0; i < n; ++i) dense[i * n + i] = 1.0;
    for (int k = 0; k < 3; ++k) {
        times_difference(n, dense, next);
        memcpy(dense, next, (size_t)(n * n) * sizeof(double));
    }
    compress(n, dense, ia, ja, a);
    for (int64_t i = 0; i < n; ++i) { /* the solution is 1, 2, 3, 1, 2, 3, ...; all sums are exact */
        b[i] = 0.0;
        for (int64_t j = 0; j < n; ++j) b[i] += dense[i * n + j] * (double)(1 + j % 3);
    }

    void *handle[64] = {0};
    int64_t iparam[64] = {0}, one = 1, type = 2, silent = 0, error = 0, ido = 13, release = -1;
    const int64_t request[] = {0, 10, -10};
    const char *name[] = {"no refinement", "plain residuals", "extended residuals"};
    double last = 1.0;
    for (int k = 0; k < 3; ++k) {
        iparam[7] = request[k];
        solvara_driver(handle, &one, &one, &type, &ido, &n, a, ia, ja, NULL, &one, iparam, &silent, b, x, &error);
        if (k == 0 && error == 0) ido = 33; /* the factors stand */
        last = 0.0;
        for (int64_t i = 0; i < n; ++i) last = fmax(last, fabs(x[i] - (double)(1 + i % 3)) / 3.0);
        printf("%-20s error %8.1e   steps %lld   code %lld\n", name[k], last, (long long)iparam[6], (long long)error);
    }
    const int64_t failed = error;
    solvara_driver(handle, &one, &one, &type, &release, &n, NULL, NULL, NULL, NULL, &one, iparam, &silent, NULL, NULL, &error);
    free(dense), free(next), free(a), free(b), free(x), free(ia), free(ja);
    return failed == 0 && last < 1e-15 ? 0 : 1;
}
