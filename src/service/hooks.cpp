#include "service/service.h"

#include <atomic>

/* Callers may register at the same time; they bring the same values, so the order does not matter. */
static std::atomic<xerbla_callback *> xerbla_hook{nullptr};
static std::atomic<progress_callback *> progress_hook{nullptr};
static std::atomic<pivot_callback *> pivot_hook{nullptr};

void service_set_xerbla_hook(xerbla_callback *callback)
{
    xerbla_callback *empty = nullptr;
    xerbla_hook.compare_exchange_strong(empty, callback);
}

void service_set_progress_hook(progress_callback *callback)
{
    progress_callback *empty = nullptr;
    progress_hook.compare_exchange_strong(empty, callback);
}

pivot_callback *service_set_pivot_hook(pivot_callback *callback)
{
    pivot_callback *before = pivot_hook.exchange(callback);
    return before != nullptr ? before : pivot_default;
}

void service_xerbla(const char *name, const int64_t *info, int32_t length)
{
    xerbla_callback *hook = xerbla_hook.load(std::memory_order_acquire);
    (hook != nullptr ? hook : service_xerbla_default)(name, info, length);
}

bool service_progress_watched()
{
    progress_callback *hook = progress_hook.load(std::memory_order_acquire);
    return hook != nullptr && hook != progress_default;
}

int64_t service_progress(const int64_t *thread, const int64_t *percent, const char *stage, int32_t length)
{
    progress_callback *hook = progress_hook.load(std::memory_order_acquire);
    return (hook != nullptr ? hook : progress_default)(thread, percent, stage, length);
}

int64_t service_pivot(const double *aux, double *pivot, const double *threshold)
{
    pivot_callback *hook = pivot_hook.load(std::memory_order_acquire);
    return (hook != nullptr ? hook : pivot_default)(aux, pivot, threshold);
}

int64_t progress_default(const int64_t *, const int64_t *, const char *, int32_t)
{
    return 0;
}

int64_t pivot_default(const double *, double *pivot, const double *threshold)
{
    const double p = *pivot;
    const double t = *threshold;
    if (p > t || p < -t) return 0; /* a NaN passes neither test and is clamped */
    *pivot = p > 0 ? t : -t;
    return 1;
}
