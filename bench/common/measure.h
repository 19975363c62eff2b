/* Measuring: times, medians, tables with CSV, and what the machine can do at most. */
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

double bench_seconds(); /* monotonic */

/* Median of the times of `runs` calls, after one call that does not count. */
double bench_median(int runs, const std::function<void()> &work);

/* Medians of several works that compete: each round runs all of them in turn, so that a disturbance hits everybody alike. */
std::vector<double> bench_medians(int runs, const std::vector<std::function<void()>> &works);

double bench_geometric_mean(const std::vector<double> &values);

/* Rows of text, all with as many cells as the head. */
struct bench_table {
    std::vector<std::string> head;
    std::vector<std::vector<std::string>> rows;
};
std::string bench_number(double value, int decimals);
void bench_print(const bench_table &table);
bool bench_write_csv(const bench_table &table, const std::string &path); /* false, with a message on standard error, when it cannot */

/* One pass of a triad a[i] = b[i] + s * c[i] over n entries by `threads` threads; it moves 24 n bytes, as usually counted. */
void bench_triad(int64_t n, double *a, const double *b, const double *c, double s, int threads);
double bench_triad_bandwidth(int threads); /* bytes a second, arrays of 64 MB each, median of 15 */

/* Operations a second (2 n^3) of the product's BLAS, one thread, n by n, median of 5. */
double bench_dgemm_rate(int64_t n);
