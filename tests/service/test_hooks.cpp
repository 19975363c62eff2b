/* Hook slots and the argument error route. The slots keep the first registration, so the cases share one process and its order. */
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

#include "service/service.h"

static std::string reported(const char *name, int64_t info)
{
    testing::internal::CaptureStdout();
    service_xerbla_default(name, &info, static_cast<int32_t>(std::strlen(name)));
    (void)std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

TEST(xerbla, texts)
{
    EXPECT_EQ(reported("WKL_DCSRSYMV", 2), "\nNorvi WKL ERROR: Parameter 2 was incorrect on entry to WKL_DCSRSYMV.\n");
    EXPECT_EQ(reported("F", 1000), "\nNorvi WKL INTERNAL ERROR: Insufficient workspace available in function F.\n");
    EXPECT_EQ(reported("F", 1212), "\nNorvi WKL INTERNAL ERROR: Issue accessing coprocessor F.\n");
    EXPECT_EQ(reported("F", 1089), "\nNorvi WKL INTERNAL ERROR: Not enough work memory in function F\n");
    EXPECT_EQ(reported("F", -7), "\nNorvi WKL INTERNAL ERROR: Condition 7 detected in function F.\n");
    EXPECT_EQ(reported("F", (int64_t{1} << 32) + 5), "\nNorvi WKL ERROR: Parameter 5 was incorrect on entry to F.\n") << "low half only";
    EXPECT_EQ(reported("a_name_of_more_than_twenty_characters", 1),
              "\nNorvi WKL ERROR: Parameter 1 was incorrect on entry to a_name_of_more_than_.\n");
}

static std::string last_name;
static int64_t last_info = 0;
static void first_xerbla(const char *name, const int64_t *info, int32_t length)
{
    last_name.assign(name, static_cast<std::size_t>(length));
    last_info = *info;
}
static void second_xerbla(const char *, const int64_t *, int32_t)
{
    last_name = "second";
}
static int64_t stopping_progress(const int64_t *thread, const int64_t *percent, const char *, int32_t length)
{
    return *thread + *percent + length;
}

TEST(hooks, first_registration_wins_but_for_the_pivot)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(service_check_null(nullptr, "a_name_of_more_than_twenty_characters"), 1) << "no hook: printed, and cut";
    (void)std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\nNorvi WKL INTERNAL ERROR: Not enough work memory in function a_name_of_more_than_\n");
    EXPECT_EQ(service_check_null(&last_info, "gemm"), 0);

    service_set_xerbla_hook(first_xerbla);
    service_set_xerbla_hook(second_xerbla);
    EXPECT_EQ(service_check_null(nullptr, "gemm"), 1);
    EXPECT_EQ(last_name, "gemm");
    EXPECT_EQ(last_info, 1089);

    const int64_t thread = 0, percent = 40;
    EXPECT_EQ(service_progress(&thread, &percent, service_factorization_stage, service_factorization_stage_length), 0);
    service_set_progress_hook(stopping_progress);
    service_set_progress_hook(progress_default);
    EXPECT_EQ(service_progress(&thread, &percent, service_factorization_stage, service_factorization_stage_length), 68);
    EXPECT_EQ(std::strlen(service_factorization_stage), static_cast<std::size_t>(service_factorization_stage_length));

    pivot_callback *own = [](const double *, double *pivot, const double *) -> int64_t { return *pivot > 5; };
    EXPECT_EQ(service_set_pivot_hook(own), pivot_default);
    double large = 6;
    EXPECT_EQ(service_pivot(nullptr, &large, nullptr), 1);
    EXPECT_EQ(service_set_pivot_hook(pivot_default), own);
}

TEST(hooks, pivot_default_clamps_small_pivots)
{
    const double t = 1e-8;
    const double cases[][3] = {/* pivot, result, changed */
                               {0, -t, 1},    {-0.0, -t, 1},   {t, t, 1},         {-t, -t, 1},
                               {t / 2, t, 1}, {-t / 2, -t, 1}, {2 * t, 2 * t, 0}, {-1, -1, 0}};
    for (const auto &[before, after, changed] : cases) {
        double pivot = before;
        EXPECT_EQ(pivot_default(nullptr, &pivot, &t), static_cast<int64_t>(changed)) << before;
        EXPECT_EQ(pivot, after) << before;
    }
    double nan = std::nan("");
    EXPECT_EQ(service_pivot(nullptr, &nan, &t), 1);
    EXPECT_EQ(nan, -t);
}
