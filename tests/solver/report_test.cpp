/* Everything that talking runs print, against kept texts in golden/; times, shares and what depends on the processor are masked. After a
   wanted change write them anew with WKL_UPDATE_GOLDEN=1 and read the difference. */
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>

#include "session.h"
#include "solver/control.h"

namespace
{
struct talking_run {
    const char *name;
    int64_t matrix_type;
    std::vector<int64_t> idos;
    void (*set_up)(session *);
};

void set(session *s, iparam_position position, int64_t value)
{
    s->parameter(position) = value;
}

const talking_run runs[] = {
    {"each_phase", 2, {11, 22, 33, 0}, [](session *) {}},
    {"composite_13_zero_based_transposed", 11, {13}, [](session *s) { set(s, iparam_transpose, 2), s->to_zero_based(), s->msglvl = 2; }},
    {"composite_12_23_single", 3, {12, 23}, [](session *s) { set(s, iparam_single_precision, 1), set(s, iparam_transpose, 1); }},
    {"matching_scaling_checker",
     -2,
     {13},
     [](session *s) { set(s, iparam_matching, 1), set(s, iparam_scaling, 1), set(s, iparam_matrix_checker, 1); }},
    {"minimum_degree_refined", -4, {13}, [](session *s) { set(s, iparam_preprocessing, 0), set(s, iparam_refinement_request, 2); }},
    {"preprocessing_1", 1, {11}, [](session *s) { set(s, iparam_preprocessing, 1); }},
    {"parallel_ordering_reproducible", 13, {13}, [](session *s) { set(s, iparam_preprocessing, 3), set(s, iparam_reproducible_units, 2); }},
    {"callers_permutation",
     4,
     {12},
     [](session *s) {
         set(s, iparam_perm_mode, 1);
         for (size_t i = 0; i < s->perm.size(); ++i) s->perm[i] = static_cast<int64_t>(s->perm.size() - i);
     }},
    {"hybrid_transposed", 11, {12, 33}, [](session *s) { set(s, iparam_hybrid, 61), set(s, iparam_transpose, 2); }},
    {"files", 6, {13}, [](session *s) { set(s, iparam_core_mode, 2); }},
    {"failed_factorization", 2, {13}, [](session *s) { s->values[s->values.size() - 1] = -1.0; }},
};

std::string printed(const talking_run &run)
{
    session s;
    iparam_defaults(s.iparam, run.matrix_type);
    load_grid(&s, run.matrix_type, 4);
    s.msglvl = 1;
    run.set_up(&s);
    s.pack(s.values, &s.a);
    s.pack(s.rhs, &s.b);
    std::string text;
    for (const int64_t ido : run.idos) text += "--- ido " + std::to_string(ido) + "\n" + s.printed(ido);
    text += "--- ido -1\n" + s.printed(-1);
    const char *const varying =
        "((Time spent|Total time spent|Factorization: +Time|Solution: +Time|gflop/s|write to files :|read from files:|"
        "write&read *:|columns for each panel)[^\\n]*?)-?[0-9.]+( %| s|)(?= |\\n)";
    return std::regex_replace(text, std::regex(varying), "$1#$3");
}
} // namespace

TEST(report, texts_of_talking_runs)
{
    for (const talking_run &run : runs) {
        SCOPED_TRACE(run.name);
        const std::string path = std::string(WKL_TEST_DATA "/../solver/golden/") + run.name + ".txt", text = printed(run);
        if (std::getenv("WKL_UPDATE_GOLDEN") != nullptr) std::ofstream(path) << text;
        std::stringstream kept;
        kept << std::ifstream(path).rdbuf();
        EXPECT_EQ(text, kept.str());
    }
}
