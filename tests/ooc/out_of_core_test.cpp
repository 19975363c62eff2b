/* Whole solver sessions with the factors in files. */
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>
#include <omp.h>

#include "../solver/session.h"
#include "state/records.h"

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

const ooc_state *ooc_of(const session &s)
{
    return static_cast<const solver_state *>(s.handle[1])->ooc;
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

double distance(const std::vector<std::complex<double>> &one, const std::vector<std::complex<double>> &other)
{
    double largest = 0.0, scale = 0.0;
    for (size_t i = 0; i < one.size(); ++i) {
        largest = std::max(largest, std::abs(one[i] - other[i]));
        scale = std::max(scale, std::abs(one[i]));
    }
    return largest / scale;
}

} // namespace

TEST(out_of_core, every_type_solves_as_in_core_with_windows_of_any_size)
{
    for (const int64_t type : all_types) {
        for (const int64_t single : {0, 1}) {
            for (const int64_t threads : {2}) {
                session in, out;
                prepare(&in, type, 120, 0, threads, single, 2);
                prepare(&out, type, 120, 2, threads, single, 2);
                ASSERT_EQ(in.call(13), 0);
                const ooc_folder folder("2000");
                ASSERT_EQ(out.call(11), 0);
                const int64_t least_mb = (out.parameter(iparam_ooc_min_kb) + out.parameter(iparam_ooc_solve_kb)) / 1024 + 1;
                setenv("WKL_SOLVARA_OOC_MAX_CORE_SIZE", std::to_string(least_mb).c_str(), 1);
                for (const int64_t ido : {22, 33}) ASSERT_EQ(out.call(ido), 0) << type << " " << single << " " << threads;
                EXPECT_EQ(folder.files(), 0);
                EXPECT_LT(distance(in.unpack(in.x), out.unpack(out.x)), single ? 1e-4 : 1e-12);
                EXPECT_LT(backward_error(&out, out.unpack(out.x)), single ? 1e-5 : 1e-13);
            }
        }
    }
}
