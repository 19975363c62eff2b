/* Compiled as C11 and as C++: the prototypes must be callable with the plain types that the header names. */
#include "wkldriver.h"

static void use_every_argument(void)
{
    void *handle[64] = {0};
    const int64_t one = 1, ido = -3;
    int64_t iparam[64] = {0}, perm[1] = {0}, error = 0;
    const int64_t ia[2] = {1, 2}, ja[1] = {1};
    const double a[1] = {2.0};
    double b[1] = {4.0}, x[1] = {0.0};
    solvara_driver(handle, &one, &one, &one, &ido, &one, a, ia, ja, perm, &one, iparam, &one, b, x, &error);
    wkl_dcsrsymv_driver("L", &one, a, ia, ja, b, x, 1);
}
