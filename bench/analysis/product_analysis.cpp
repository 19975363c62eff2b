#include "product_analysis.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <malloc.h>
#include <omp.h>
#include <sys/wait.h>
#include <unistd.h>

#include "measure.h"
#include "wkldriver.h"

double product_analysis(const bench_input &in, int threads, double *kilobytes)
{
    omp_set_num_threads(threads);
    static const double value = 0; /* ido 11 without matching reads no values */
    void *handle[64] = {};
    int64_t iparam[64] = {}, error = 0;
    const int64_t one = 1, silent = 0, analyse = 11, release = -1;
    iparam[0] = 1;
    iparam[1] = threads > 1 ? 3 : 2;
    iparam[9] = 13;
    std::vector<int64_t> perm(static_cast<size_t>(in.n));
    const auto call = [&](const int64_t *ido) {
        solvara_driver(handle, &one, &one, &in.type, ido, &in.n, &value, in.ia.data(), in.ja.data(), perm.data(), &one, iparam, &silent,
                       nullptr, nullptr, &error);
    };
    const double start = bench_seconds();
    call(&analyse);
    const double seconds = error == 0 ? bench_seconds() - start : std::nan("");
    if (kilobytes != nullptr) *kilobytes = error == 0 ? static_cast<double>(iparam[14]) : -1;
    call(&release);
    return seconds;
}

/* A line of /proc/self/status in kilobytes. */
static double status_kilobytes(const char *label)
{
    FILE *file = std::fopen("/proc/self/status", "r");
    char line[256];
    double kilobytes = -1;
    while (file != nullptr && std::fgets(line, sizeof line, file) != nullptr)
        if (std::strncmp(line, label, std::strlen(label)) == 0) std::sscanf(line + std::strlen(label), "%lf", &kilobytes);
    if (file != nullptr) std::fclose(file);
    return kilobytes;
}

static analysis_memory measure_here(const bench_input &in, int threads)
{
    analysis_memory m{-1, -1};
    malloc_trim(0);
    FILE *file = std::fopen("/proc/self/clear_refs", "w"); /* "5" starts the peak anew */
    const bool reset = file != nullptr && std::fputs("5", file) >= 0;
    const bool done = file != nullptr && std::fclose(file) == 0 && reset;
    const double before = status_kilobytes("VmRSS:");
    product_analysis(in, threads, &m.reported);
    if (done) m.peak = status_kilobytes("VmHWM:") - before;
    return m;
}

analysis_memory product_memory(const bench_input &in, int threads)
{
    analysis_memory m{-1, -1};
    int ends[2];
    if (pipe(ends) != 0) return m;
    const pid_t child = fork();
    if (child == 0) {
        m = measure_here(in, threads);
        _exit(write(ends[1], &m, sizeof m) == static_cast<ssize_t>(sizeof m) ? 0 : 1);
    }
    close(ends[1]);
    if (child > 0 && read(ends[0], &m, sizeof m) != static_cast<ssize_t>(sizeof m)) m = {-1, -1};
    close(ends[0]);
    if (child > 0) waitpid(child, nullptr, 0);
    return m;
}
