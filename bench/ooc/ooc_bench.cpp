/* Factors in files against factors in core: the same system in two processes, the second one within a quarter of the memory that the first
   one's handle held: max_core_size, the address space that the process may add to what it had with the matrix built, and a control group of
   its own, page cache included, where one is given. Its solve reads files that are on the disk alone. Prints times, ratios, rates, peaks
   and estimates. ooc_bench [--quick] [--case grid|elasticity] [--side N] [--part N] [--group FOLDER] [FOLDER of the files]
   --quick takes small systems and half of the memory, since their analysis takes more of it; --side sets the size of the grid, half of it
   that of the brick; --part takes one Nth; --group names an empty memory control group that this process may write to. */
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <malloc.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "generators.h"
#include "measure.h"
#include "solver/solver.h"
#include "state/iparam.h"
#include "state/records.h"

namespace
{

struct figures {
    double analysis, factor, solve, error;
    int64_t need_kb; /* peak of what the handle held */
    int64_t used_kb; /* what it held in the end */
    int64_t rss_kb, address_kb, group_kb, estimate_kb, ooc_least_kb;
    int64_t written, read_factor, read_solve;
    int64_t core_mode, result;
    double disk; /* bytes a second of cold sequential reads of the files, before and behind the solve: the rate of a disk drifts */
};

struct run_request {
    int64_t core_mode, core_megabytes, limit_megabytes; /* limit: 0 for none */
    std::string folder, group;
};

int64_t status_kb(const char *key)
{
    std::FILE *file = std::fopen("/proc/self/status", "r");
    char line[256];
    int64_t value = 0;
    while (file != nullptr && std::fgets(line, sizeof line, file) != nullptr)
        if (std::strncmp(line, key, std::strlen(key)) == 0) value = std::atoll(line + std::strlen(key) + 1);
    if (file != nullptr) std::fclose(file);
    return value;
}

double backward_error(const market_matrix &upper, const std::vector<double> &b, const std::vector<double> &x)
{
    std::vector<double> r(b);
    double norm = 0, largest_x = 0, largest_b = 0, largest_r = 0;
    for (int64_t i = 0; i < upper.rows; ++i) {
        const auto row = static_cast<size_t>(i);
        for (int64_t p = upper.ia[row] - 1; p < upper.ia[row + 1] - 1; ++p) {
            const auto column = static_cast<size_t>(upper.ja[static_cast<size_t>(p)] - 1);
            const double v = upper.value[static_cast<size_t>(p)];
            r[row] -= v * x[column];
            if (column != row) r[column] -= v * x[row];
            norm = std::max(norm, std::fabs(v));
        }
    }
    for (size_t i = 0; i < b.size(); ++i) {
        largest_x = std::max(largest_x, std::fabs(x[i]));
        largest_b = std::max(largest_b, std::fabs(b[i]));
        largest_r = std::max(largest_r, std::fabs(r[i]));
    }
    return largest_r / (norm * largest_x + largest_b);
}

/* The library's open files: their names are gone. */
std::vector<int> open_files(const std::string &folder)
{
    std::vector<int> found;
    for (int file = 0; file < 256; ++file) {
        char name[4096];
        const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), name, sizeof name);
        if (length > 0 && std::string(name, static_cast<size_t>(length)).starts_with(folder + "/")) found.push_back(file);
    }
    return found;
}

/* Put the files on the disk and out of the system's memory, so that a solve reads the disk. */
void drop_from_memory(const std::string &folder)
{
    for (const int file : open_files(folder)) {
        (void)fsync(file);
        (void)posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
    }
}

struct host {
    void *handle[64] = {};
    int64_t iparam[64] = {};
    market_matrix matrix;
    std::vector<double> b, x;
    std::vector<int64_t> perm;

    int64_t call(int64_t ido, double *seconds)
    {
        const int64_t one = 1, type = 2, n = matrix.rows, msglvl = 0;
        int64_t error = 0;
        const double start = bench_seconds();
        solver_entry(handle, &one, &one, &type, &ido, &n, matrix.value.data(), matrix.ia.data(), matrix.ja.data(), perm.data(), &one,
                     iparam, &msglvl, b.data(), x.data(), &error);
        *seconds = bench_seconds() - start;
        return error;
    }
};

void prepare_process(const run_request &request)
{
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, 1 << 17); /* what is freed leaves the address space, which the limit counts */
    setenv("WKL_SOLVARA_OOC_PATH", (request.folder + "/part").c_str(), 1);
    setenv("WKL_SOLVARA_OOC_MAX_CORE_SIZE", std::to_string(request.core_megabytes).c_str(), 1);
}

void write_value(const std::string &path, int64_t value)
{
    std::FILE *file = std::fopen(path.c_str(), "w");
    if (file == nullptr) return;
    std::fprintf(file, "%lld", static_cast<long long>(value));
    std::fclose(file);
}

/* Control groups of version 1 and 2 differ in the names of their files. */
/* The address space, 0 for no limit. What the bench itself allocates between the calls is not to fail. */
void limit_space(rlim_t bytes)
{
    rlimit limit;
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = bytes == 0 ? limit.rlim_max : bytes;
    setrlimit(RLIMIT_AS, &limit);
}

/* Returns the limit of the address space. */
rlim_t limit_memory(const run_request &request, int64_t start_kb)
{
    if (!request.group.empty()) {
        for (const char *name : {"/memory.limit_in_bytes", "/memory.max"}) write_value(request.group + name, request.limit_megabytes << 20);
        write_value(request.group + "/cgroup.procs", getpid());
    }
    const auto bytes = static_cast<rlim_t>((start_kb << 10) + (request.limit_megabytes << 20));
    limit_space(bytes);
    return bytes;
}

int64_t group_peak_kb(const std::string &group)
{
    long long bytes = 0;
    for (const char *name : {"/memory.max_usage_in_bytes", "/memory.peak"}) {
        std::FILE *file = group.empty() ? nullptr : std::fopen((group + name).c_str(), "r");
        if (file == nullptr) continue;
        if (std::fscanf(file, "%lld", &bytes) != 1) bytes = 0;
        std::fclose(file);
    }
    return bytes / 1024;
}

/* Seconds of a cold sequential read of at most 512 MB of the folder's largest file; the bytes are added to *bytes. */
double read_cold(const std::string &folder, std::vector<char> *block, int64_t *bytes)
{
    int largest = -1;
    for (const int file : open_files(folder)) {
        struct stat one, most;
        if (fstat(file, &one) == 0 && (largest < 0 || (fstat(largest, &most) == 0 && one.st_size > most.st_size))) largest = file;
    }
    drop_from_memory(folder);
    const int file = open(("/proc/self/fd/" + std::to_string(largest)).c_str(), O_RDONLY); /* a way of its own, the ordinary one */
    if (file < 0) return 0;
    const double start = bench_seconds();
    int64_t got = 0;
    for (ssize_t part = 1; part > 0 && got < int64_t{512} << 20; got += part) part = read(file, block->data(), block->size());
    const double seconds = bench_seconds() - start;
    close(file);
    *bytes += got;
    return seconds;
}

figures measure(const market_matrix &lower, const run_request &request)
{
    prepare_process(request);
    figures out{};
    host h;
    std::vector<char> block(1 << 20, 1);
    h.matrix = market_transpose(lower);
    const auto n = static_cast<size_t>(h.matrix.rows);
    h.x.assign(n, 0.0);
    h.perm.assign(n, 0);
    for (size_t i = 0; i < n; ++i) h.b.push_back(1.0 + static_cast<double>(i % 7));
    h.iparam[0] = 1;
    h.iparam[1] = 2;
    h.iparam[iparam_core_mode - 1] = request.core_mode;
#pragma omp parallel
    {
    } /* the threads and their stacks are the process's own */
    const int64_t start_kb = status_kb("VmSize:"), start_rss = status_kb("VmRSS:");
    const bool limited = request.limit_megabytes > 0;
    const rlim_t space = limited ? limit_memory(request, start_kb) : 0;
    out.result = h.call(11, &out.analysis);
    if (out.result == 0) out.result = h.call(22, &out.factor);
    out.address_kb = status_kb("VmPeak:") - start_kb;
    out.rss_kb = status_kb("VmHWM:") - start_rss;
    out.group_kb = limited ? group_peak_kb(request.group) : 0;
    limit_space(0);
    int64_t bytes = 0;
    double seconds = limited ? read_cold(request.folder, &block, &bytes) : 0;
    drop_from_memory(request.folder);
    limit_space(space);
    if (out.result == 0) out.result = h.call(33, &out.solve);
    limit_space(0);
    seconds += limited ? read_cold(request.folder, &block, &bytes) : 0;
    if (limited) out.disk = static_cast<double>(bytes) / seconds;
    const auto *state = static_cast<const solver_state *>(h.handle[1]);
    out.core_mode = state->core_mode;
    out.need_kb = state->memory_peak / 1024;
    out.used_kb = state->memory_current / 1024;
    out.estimate_kb = state->ooc->incore_estimate;
    out.ooc_least_kb = state->ooc->ooc_min_kb + state->ooc->ooc_solve_kb;
    out.written = state->ooc->written_factor;
    out.read_factor = state->ooc->read_factor;
    out.read_solve = state->ooc->read_solve;
    if (out.result == 0) out.error = backward_error(h.matrix, h.b, h.x);
    h.call(-1, &seconds);
    return out;
}

/* In a process of its own, so that limits and peaks are its own. */
figures measure_apart(const market_matrix &matrix, const run_request &request)
{
    int ends[2];
    figures out{};
    out.result = -1000;
    if (pipe(ends) != 0) return out;
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        const figures mine = measure(matrix, request);
        const bool sent = write(ends[1], &mine, sizeof mine) == static_cast<ssize_t>(sizeof mine);
        _exit(sent ? 0 : 1);
    }
    close(ends[1]);
    if (read(ends[0], &out, sizeof out) != static_cast<ssize_t>(sizeof out)) out.result = -1000;
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return out;
}

std::string megabytes(double bytes)
{
    return bench_number(bytes / 1e6, 1);
}

void add_row(bench_table *table, const std::string &name, const std::string &mode, const figures &f, const figures &base)
{
    const double rate = f.read_solve == 0 ? 0 : static_cast<double>(f.read_solve) / f.solve;
    table->rows.push_back({name, mode, std::to_string(f.result), std::to_string(f.core_mode), bench_number(f.analysis, 2),
                           bench_number(f.factor, 2), bench_number(f.factor / base.factor, 2), bench_number(f.solve, 3),
                           megabytes(static_cast<double>(f.written)), megabytes(static_cast<double>(f.read_factor)),
                           megabytes(static_cast<double>(f.read_solve)), megabytes(rate), bench_number(f.disk > 0 ? rate / f.disk : 0, 2),
                           std::to_string(f.need_kb / 1024), std::to_string(f.rss_kb / 1024), std::to_string(f.address_kb / 1024),
                           std::to_string(f.group_kb / 1024), bench_number(f.error * 1e16, 2)});
}

struct bench_options {
    bool quick = false;
    int64_t part = 0; /* the limit is this part of the memory; 0: 4, or 2 with quick */
    int64_t side = 0; /* 0: 70, or 40 with quick */
    std::string only, group, folder = ".";
};

bench_options read_options(int count, char **arguments)
{
    bench_options options;
    for (int i = 1; i < count; ++i) {
        const std::string word = arguments[i];
        if (word == "--quick")
            options.quick = true;
        else if (word == "--case" && i + 1 < count)
            options.only = arguments[++i];
        else if (word == "--part" && i + 1 < count)
            options.part = std::atoll(arguments[++i]);
        else if (word == "--side" && i + 1 < count)
            options.side = std::atoll(arguments[++i]);
        else if (word == "--group" && i + 1 < count)
            options.group = arguments[++i];
        else
            options.folder = word;
    }
    return options;
}

} // namespace

int main(int count, char **arguments)
{
    const bench_options options = read_options(count, arguments);
    std::string work = options.folder + "/ooc_bench_XXXXXX";
    if (mkdtemp(work.data()) == nullptr) return 1;
    work = std::filesystem::canonical(work);
    bench_table table;
    table.head = {"matrix",    "limit",     "result",     "core mode", "analysis s", "factor s", "ratio",    "solve s",  "written MB",
                  "read f MB", "read s MB", "solve MB/s", "of disk",   "held MB",    "RSS MB",   "space MB", "group MB", "error e-16"};
    const int64_t divisor = options.part > 0 ? options.part : options.quick ? 2 : 4;
    const auto run = [&](const std::string &name, const market_matrix &matrix) {
        const figures in = measure_apart(matrix, {0, 0, 0, work, {}});
        const int64_t part = in.need_kb / divisor / 1024 + 1,
                      core = part * (options.quick ? 8 : 9) / 10; /* the allocator and the runtime take the rest */
        const figures out = measure_apart(matrix, {1, core, part, work, options.group});
        add_row(&table, name, "none", in, in);
        add_row(&table, name, std::to_string(part) + " MB", out, in);
        std::printf("%s: in-core estimate %lld MB, used %lld; least out of core %lld MB, used %lld with %lld allowed\n", name.c_str(),
                    static_cast<long long>(in.estimate_kb / 1024), static_cast<long long>(in.used_kb / 1024),
                    static_cast<long long>(out.ooc_least_kb / 1024), static_cast<long long>(out.used_kb / 1024),
                    static_cast<long long>(core));
    };
    const int64_t side = options.side > 0 ? options.side : options.quick ? 40 : 70, bricks = side / 2;
    if (options.only != "elasticity") run("grid " + std::to_string(side) + "^3", grid_3d_7(side, side, side));
    if (options.only != "grid") run("elasticity " + std::to_string(bricks) + "^3", elasticity(bricks, bricks, bricks));
    bench_print(table);
    std::filesystem::remove_all(work);
    return 0;
}
