#include <stdio.h>
#include <wkldriver.h>

int main(void)
{
    const int64_t n = 2, ia[] = {1, 3, 4}, ja[] = {1, 2, 2}, ido = -3;
    const double a[] = {2.0, 1.0, 3.0}, x[] = {1.0, 10.0};
    double y[2];
    int64_t error = 0;
    wkl_dcsrsymv_driver("U", &n, a, ia, ja, x, y, 1);
    solvara_driver(0, 0, 0, 0, &ido, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, &error);
    printf("y = %g %g, query %lld\n", y[0], y[1], (long long)error);
    return y[0] == 12.0 && y[1] == 31.0 && error == 300000 ? 0 : 1;
}
