#include "service/claim_memory.h"
#include "platform/platform.h"

void service_claim_memory(void *memory, int64_t bytes, int64_t threads)
{
    constexpr int64_t piece = int64_t{1} << 20; /* what is smaller is not worth a request */
    const int64_t pieces = bytes / piece;
    char *start = static_cast<char *>(memory);
    if (pieces < 1) return;
    const int64_t wanted = threads < pieces ? threads : pieces;
    const int32_t count = wanted > 1 ? static_cast<int32_t>(wanted) : 1;
#pragma omp parallel for schedule(static) num_threads(count) if (count > 1)
    for (int64_t k = 0; k < pieces; ++k) platform_claim_pages(start + k * piece, static_cast<uint64_t>(piece));
}
