/* A host that knows the library only by file name and the two symbols: dlopen_host libwkldriver.so. Ends with 0 when all holds. */
#include "wkldriver.h"

#include <dlfcn.h>
#include <stdio.h>

static int faults = 0;

static void expect(int holds, const char *what)
{
    if (!holds) {
        printf("fault: %s\n", what);
        ++faults;
    }
}

typedef void solver_function(void **, const int64_t *, const int64_t *, const int64_t *, const int64_t *, const int64_t *, const void *,
                             const int64_t *, const int64_t *, int64_t *, const int64_t *, int64_t *, const int64_t *, void *, void *,
                             int64_t *);
typedef void product_function(const char *, const int64_t *, const double *, const int64_t *, const int64_t *, const double *, double *,
                              int32_t);

/* The queries look at nothing but ido, iparam(1) and error. */
static void check_queries(solver_function *solve)
{
    int64_t ido = -2, iparam[64] = {0}, error = -77;
    solve(NULL, NULL, NULL, NULL, &ido, NULL, NULL, NULL, NULL, NULL, NULL, iparam, NULL, NULL, NULL, &error);
    expect(error == 16 && iparam[0] == 23, "ido -2 answers 16 and 23");
    ido = -3;
    solve(NULL, NULL, NULL, NULL, &ido, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, &error);
    expect(error == 300000, "ido -3 answers 300000");
}

/* 2 -1 0; -1 2 -1; 0 -1 2 from either triangle, over a poisoned y. */
static void check_product(product_function *multiply)
{
    const int64_t m = 3, minus = -1;
    const double lower[] = {2, -1, 2, -1, 2}, x[] = {1, 2, 4};
    const int64_t lower_ia[] = {1, 2, 4, 6}, lower_ja[] = {1, 1, 2, 2, 3};
    const int64_t upper_ia[] = {1, 3, 5, 6}, upper_ja[] = {1, 2, 2, 3, 3};
    const double upper[] = {2, -1, 2, -1, 2};
    double y[3] = {1e300, 1e300, 1e300};
    multiply("L", &m, lower, lower_ia, lower_ja, x, y, 1);
    expect(y[0] == 0 && y[1] == -1 && y[2] == 6, "product from the lower triangle");
    y[0] = y[1] = y[2] = 1e300;
    multiply("upper", &m, upper, upper_ia, upper_ja, x, y, 5);
    expect(y[0] == 0 && y[1] == -1 && y[2] == 6, "product from the upper triangle");
    y[0] = 7;
    multiply("X", &m, upper, upper_ia, upper_ja, x, y, 1);
    multiply("L", &minus, upper, upper_ia, upper_ja, x, y, 1);
    expect(y[0] == 7, "a refused product leaves y as it was");
}

/* Loading does nothing that a second load or an unload could trip over. */
int main(int argc, char **argv)
{
    for (int round = 0; round < 2 && argc == 2; ++round) {
        void *library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (library == NULL) {
            printf("fault: %s\n", dlerror());
            return 1;
        }
        solver_function *solve = NULL;
        product_function *multiply = NULL;
        *(void **)&solve = dlsym(library, "solvara_driver");
        *(void **)&multiply = dlsym(library, "wkl_dcsrsymv_driver");
        expect(solve != NULL && multiply != NULL, "both symbols are found");
        if (faults == 0) {
            check_queries(solve);
            check_product(multiply);
        }
        dlclose(library);
    }
    expect(argc == 2, "usage: dlopen_host library");
    return faults == 0 ? 0 : 1;
}
