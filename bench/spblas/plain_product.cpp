/* The loop that anybody would write, for one stored triangle: the measure of the library's product. Compiled once for each set of flags
   that the library's own bodies are compiled with; WKL_PLAIN_NAME is its name. */
#include <cstdint>

void WKL_PLAIN_NAME(int64_t m, const double *a, const int64_t *ia, const int64_t *ja, const double *x, double *y)
{
    for (int64_t i = 0; i < m; ++i) y[i] = 0.0;
    for (int64_t i = 0; i < m; ++i) {
        const double t = x[i];
        double sum = 0.0;
        for (int64_t p = ia[i] - 1; p < ia[i + 1] - 1; ++p) {
            const int64_t c = ja[p] - 1;
            if (c != i) y[c] += a[p] * t;
            sum += a[p] * x[c];
        }
        y[i] += sum;
    }
}
