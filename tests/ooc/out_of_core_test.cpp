/* Whole solver sessions with the factors in files. */
#include <aio.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <omp.h>

#include "../solver/failure_harness.h"
#include "../solver/session.h"
#include "state/records.h"

/* In place of the system's transfers in the background: as they are, refused, left undone, or with the file cut short under them. */
enum class trouble { none, refused, undone, cut };
static std::atomic<trouble> transfers{trouble::none};
static std::atomic<int64_t> asked{0};

static int ask(const char *name, aiocb *request)
{
    ++asked;
    errno = EAGAIN;
    return transfers == trouble::refused ? -1 : reinterpret_cast<int (*)(aiocb *)>(dlsym(RTLD_NEXT, name))(request);
}
extern "C" int aio_read(aiocb *request) noexcept
{
    return ask("aio_read", request);
}
extern "C" int aio_write(aiocb *request) noexcept
{
    return ask("aio_write", request);
}
extern "C" ssize_t aio_return(aiocb *request) noexcept
{
    const ssize_t moved = reinterpret_cast<ssize_t (*)(aiocb *)>(dlsym(RTLD_NEXT, "aio_return"))(request);
    if (transfers == trouble::cut) { EXPECT_EQ(ftruncate(request->aio_fildes, 0), 0); }
    return transfers == trouble::undone || transfers == trouble::cut ? -1 : moved;
}

namespace
{

/* More threads than processors, before anybody reads the setting. */
const int dynamic_off = setenv("WKL_DYNAMIC", "FALSE", 1);

constexpr int64_t all_types[] = {1, 2, -2, 3, 4, -4, 6, 11, 13};

/* A fresh folder for temporary files and the settings that lead there. */
struct ooc_folder {
    std::filesystem::path folder;
    explicit ooc_folder(const char *core_megabytes, const char *keep = "1")
    {
        char name[] = "/tmp/ooc_test_XXXXXX";
        folder = mkdtemp(name);
        setenv("WKL_SOLVARA_OOC_PATH", (folder / "part").c_str(), 1);
        setenv("WKL_SOLVARA_OOC_MAX_CORE_SIZE", core_megabytes, 1);
        setenv("WKL_SOLVARA_OOC_KEEP_FILE", keep, 1);
    }
    ~ooc_folder()
    {
        for (const char *name : {"WKL_SOLVARA_OOC_PATH", "WKL_SOLVARA_OOC_MAX_CORE_SIZE", "WKL_SOLVARA_OOC_KEEP_FILE"}) unsetenv(name);
        std::filesystem::remove_all(folder);
    }
    ooc_folder(const ooc_folder &) = delete;
    ooc_folder &operator=(const ooc_folder &) = delete;
    int64_t files() const
    {
        return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
    }
};

const solver_state *state_of(const session &s)
{
    return static_cast<const solver_state *>(s.handle[1]);
}

void prepare(session *s, int64_t type, int64_t side, int64_t core_mode, int64_t threads, int64_t single, int64_t nb = 1)
{
    s->parameter(iparam_use_defaults) = 1;
    s->parameter(iparam_preprocessing) = 2;
    omp_set_num_threads(static_cast<int>(threads));
    s->parameter(iparam_core_mode) = core_mode;
    s->parameter(iparam_single_precision) = single;
    load_grid(s, type, side, nb);
}

} // namespace

/* The least windows, so that pages come and go; returns the megabytes. */
int64_t analyse_for_least_windows(session *s)
{
    EXPECT_EQ(s->call(11), 0);
    const int64_t least = (s->parameter(iparam_ooc_min_kb) + s->parameter(iparam_ooc_solve_kb)) / 1024 + 1;
    setenv("WKL_SOLVARA_OOC_MAX_CORE_SIZE", std::to_string(least).c_str(), 1);
    return least;
}

TEST(out_of_core, every_type_solves_through_the_least_windows)
{
    for (const int64_t type : all_types) {
        for (const int64_t single : {0, 1}) {
            for (const int64_t threads : {1, 2, 5}) {
                session out;
                prepare(&out, type, 60, 2, threads, single, 2);
                const ooc_folder folder("2000");
                const int64_t least = analyse_for_least_windows(&out);
                for (const int64_t ido : {22, 33}) ASSERT_EQ(out.call(ido), 0) << type << " " << single << " " << threads;
                EXPECT_EQ(folder.files(), 0); /* their names are gone while the handle lives */
                EXPECT_LT(backward_error(&out, out.unpack(out.x)), single ? 1e-5 : 1e-13);
                EXPECT_LE(state_of(out)->memory_current, (least + 1) << 20);
                EXPECT_EQ(out.parameter(iparam_core_mode_result), 2);
            }
        }
    }
}

TEST(out_of_core, pages_move_when_the_factors_do_not_fit_and_repeated_work_gives_the_same_bits)
{
    session s;
    prepare(&s, -2, 200, 2, 1, 0); /* only one thread promises the bits */
    const ooc_folder folder("2000");
    analyse_for_least_windows(&s);
    ASSERT_EQ(s.call(23), 0);
    const ooc_state *files = state_of(s)->ooc;
    EXPECT_TRUE(files->read_factor > 0 && files->read_solve > 0);
    const int64_t factor_bytes = 8 * state_of(s)->nnz_l;
    EXPECT_GE(files->written_factor, factor_bytes);
    EXPECT_LT(files->written_factor, factor_bytes + factor_bytes / 10); /* once each */
    const std::vector<unsigned char> first = s.x;
    ASSERT_EQ(s.call(23), 0);
    EXPECT_EQ(s.x, first);
}

TEST(out_of_core, estimates_hold_within_a_tenth)
{
    for (const int64_t type : {2, 11}) {
        session in, out;
        prepare(&in, type, 250, 0, 2, 0);
        prepare(&out, type, 250, 2, 2, 0);
        ASSERT_EQ(in.call(13), 0);
        const auto kilobytes_of = [](const session &s) { return static_cast<double>(state_of(s)->memory_current) / 1024; };
        EXPECT_NEAR(static_cast<double>(state_of(in)->ooc->incore_estimate) / kilobytes_of(in), 1.0, 0.1) << type;
        const ooc_folder folder("2000");
        analyse_for_least_windows(&out);
        ASSERT_EQ(out.call(23), 0);
        const double least = static_cast<double>(out.parameter(iparam_ooc_min_kb) + out.parameter(iparam_ooc_solve_kb));
        EXPECT_NEAR(kilobytes_of(out) / least, 1.0, 0.1) << type;
    }
}

TEST(out_of_core, chosen_by_memory_when_asked)
{
    for (const bool fits : {true, false}) {
        session s;
        prepare(&s, 2, 200, 1, 2, 0);
        const ooc_folder folder("2000");
        if (!fits) analyse_for_least_windows(&s);
        s.msglvl = 1;
        const std::string text = s.printed(fits ? 13 : 23);
        ASSERT_EQ(s.error, 0);
        EXPECT_EQ(s.parameter(iparam_core_mode_result), fits ? -1 : 2);
        EXPECT_NE(text.find(fits ? "there is enough RAM" : "there is not enough RAM"), std::string::npos);
        EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-13);
    }
    session s;
    prepare(&s, 2, 200, 2, 2, 0);
    const ooc_folder folder("1");
    EXPECT_EQ(s.call(13), -9);
}

TEST(out_of_core, kept_factorizations_share_the_windows)
{
    session s;
    prepare(&s, 11, 120, 2, 2, 0);
    s.max_fac_store = 3;
    const ooc_folder folder("2000");
    analyse_for_least_windows(&s);
    const std::vector<std::complex<double>> values = s.values;
    const auto run = [&](int64_t number, int64_t ido) {
        for (size_t i = 0; i < values.size(); ++i) s.values[i] = values[i] * static_cast<double>(number);
        s.load();
        s.matrix_number = number;
        ASSERT_EQ(s.call(ido), 0);
        if (ido == 22) return;
        EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-12) << number;
    };
    for (const int64_t number : {1, 2, 3}) run(number, 22);
    for (const int64_t number : {2, 1, 3, 1}) run(number, 33);
    s.matrix_number = 2;
    EXPECT_EQ(s.call(0), 0);
    s.matrix_number = 3;
    EXPECT_EQ(s.call(33), 0);
}

TEST(out_of_core, kept_files_stay_complete_private_and_apart)
{
    /* lindx, lnz, two tables of the map and the two update lists; unz and its tables; with scaling the columns of both sides */
    for (const auto &[type, scaling, files] : {std::array<int64_t, 3>{2, 0, 6}, {11, 0, 9}, {13, 1, 11}}) {
        const ooc_folder folder("2000", "0");
        {
            session s, other;
            for (session *one : {&s, &other}) {
                prepare(one, type, 40, 2, 2, 0);
                one->parameter(iparam_scaling) = one->parameter(iparam_matching) = scaling;
                one->max_fac_store = 2;
                ASSERT_EQ(one->call(13), 0);
            }
            EXPECT_EQ(folder.files(), 2 * files) << type;
            for (const int64_t number : {2, 1}) { /* a further set, and one made anew */
                s.matrix_number = number;
                ASSERT_EQ(s.call(23), 0);
                EXPECT_LT(backward_error(&s, s.unpack(s.x)), 1e-13);
            }
        }
        EXPECT_EQ(folder.files(), 2 * files + (type == 2 ? 1 : 2)) << type;
        for (const auto &entry : std::filesystem::directory_iterator(folder.folder)) {
            struct stat status;
            ASSERT_EQ(lstat(entry.path().c_str(), &status), 0);
            EXPECT_TRUE((status.st_mode & 0777) == 0600u && status.st_size > 0) << entry.path();
        }
    }
}

/* Every way in which files can fail: the documented code and words, no crash, and the handle works in core afterwards. */
void expect_usable_in_core(session *s)
{
    s->parameter(iparam_core_mode) = 0;
    s->load();
    ASSERT_EQ(s->call(13), 0);
    EXPECT_LT(backward_error(s, s->unpack(s->x)), 1e-13);
}

TEST(out_of_core_faults, no_folder_and_no_space)
{
    std::signal(SIGXFSZ, SIG_IGN);
    for (const int64_t type : {2, 13}) {
        const ooc_folder folder("2000");
        session s;
        prepare(&s, type, 80, 2, 2, 0);
        s.msglvl = 1;
        setenv("WKL_SOLVARA_OOC_PATH", "/tmp/no/such/folder/part", 1);
        const std::string words = s.printed(13);
        EXPECT_EQ(s.error, -10);
        EXPECT_NE(words.find("SOLVARA_OOC_OPEN_FILE_ERROR occurred: No such file"), std::string::npos) << words;
        EXPECT_NE(words.find("open OOC tmp files"), std::string::npos);
        s.call(-1);

        setenv("WKL_SOLVARA_OOC_PATH", (folder.folder / "part").c_str(), 1);
        rlimit before;
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit small = {100000, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        output_capture capture;
        s.call(13);
        setrlimit(RLIMIT_FSIZE, &before);
        const std::string full = capture.text();
        EXPECT_EQ(s.error, -11);
        EXPECT_NE(full.find("SOLVARA_OOC_WRITE_FILE_ERROR occurred: "), std::string::npos) << full;
        EXPECT_EQ(folder.files(), 0);
        s.msglvl = 0;
        expect_usable_in_core(&s);
    }
}

TEST(out_of_core_faults, files_missing_shortened_changed_or_replaced_by_links)
{
    enum class harm { removed, shortened, changed, linked };
    for (const harm done : {harm::removed, harm::shortened, harm::changed, harm::linked}) {
        const ooc_folder folder("2000", "0");
        session s;
        prepare(&s, 11, 200, 2, 2, 0);
        analyse_for_least_windows(&s);
        ASSERT_EQ(s.call(22), 0);
        for (const auto &entry : std::filesystem::directory_iterator(folder.folder)) {
            if (entry.path().extension() != ".03") continue;
            const std::filesystem::path aside = folder.folder / "aside";
            if (done == harm::removed) std::filesystem::remove(entry.path());
            if (done == harm::shortened) std::filesystem::resize_file(entry.path(), 1000);
            if (done == harm::linked) {
                std::filesystem::rename(entry.path(), aside);
                std::filesystem::create_symlink(aside, entry.path());
            }
            if (done == harm::changed) {
                std::FILE *file = std::fopen(entry.path().c_str(), "r+");
                for (long at = 0; std::fseek(file, at, SEEK_SET) == 0 && at < 1000000; at += 4096) std::fputc('x', file);
                std::fclose(file);
            }
            break;
        }
        s.msglvl = 1;
        const std::string text = s.printed(33);
        const bool open_fails = done == harm::removed || done == harm::linked;
        EXPECT_EQ(s.error, open_fails ? -10 : -11) << static_cast<int>(done);
        EXPECT_NE(text.find(open_fails ? "solution step: open file for reading unz" : "SOLVARA_OOC_READ_FILE_ERROR"), std::string::npos)
            << text;
        s.msglvl = 0;
        expect_usable_in_core(&s);
    }
}

TEST(out_of_core_faults, transfers_in_the_background_refused_undone_or_lost)
{
    std::vector<unsigned char> first;
    for (const trouble met : {trouble::none, trouble::refused, trouble::undone, trouble::cut}) {
        session s;
        prepare(&s, -2, 200, 2, 1, 0);
        const ooc_folder folder("2000");
        analyse_for_least_windows(&s);
        asked = 0;
        transfers = met == trouble::cut ? trouble::none : met;
        ASSERT_EQ(s.call(22), 0);
        transfers = met;
        s.call(33);
        transfers = trouble::none;
        if (asked == 0) GTEST_SKIP() << "nothing goes in the background here";
        EXPECT_EQ(s.error, met == trouble::cut ? -11 : 0);
        if (met == trouble::none) first = s.x;
        if (met == trouble::cut)
            expect_usable_in_core(&s);
        else
            EXPECT_EQ(s.x, first) << static_cast<int>(met);
    }
}

TEST(out_of_core_faults, every_allocation_of_the_file_layer_may_fail)
{
    const ooc_folder folder("2000");
    const int64_t runs = for_every_failing_allocation([](int64_t) {
        session s;
        prepare(&s, 11, 30, 2, 2, 0);
        s.call(13);
        EXPECT_TRUE(s.error == 0 || s.error == -2) << s.error;
        allocation_failure::disarm();
    });
    EXPECT_GT(runs, 10);
    EXPECT_EQ(folder.files(), 0);
}
