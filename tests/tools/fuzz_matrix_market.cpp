/* Any bytes go to the reader; what it accepts must be a sound matrix, and so must its expansion and its other triangle. */
#include "matrix_market.h"

#include <cstdlib>

static void require(bool condition)
{
    if (!condition) std::abort();
}

static void check_rows(const market_matrix &a)
{
    const size_t width = a.field == market_field::complex ? 2 : 1;
    require(a.ia.size() == static_cast<size_t>(a.rows) + 1 && a.ia[0] == 1);
    require(a.ja.size() == static_cast<size_t>(a.ia.back() - 1) && a.value.size() == width * a.ja.size());
    for (size_t i = 0; i + 1 < a.ia.size(); ++i) {
        require(a.ia[i] <= a.ia[i + 1]);
        for (size_t k = static_cast<size_t>(a.ia[i] - 1); k < static_cast<size_t>(a.ia[i + 1] - 1); ++k) {
            require(a.ja[k] >= 1 && a.ja[k] <= a.columns);
            require(k == static_cast<size_t>(a.ia[i] - 1) || a.ja[k - 1] < a.ja[k]);
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    market_matrix a;
    std::string error;
    if (parse_matrix_market(reinterpret_cast<const char *>(data), size, &a, &error)) {
        check_rows(a);
        check_rows(market_expand(a));
        check_rows(market_transpose(a));
    } else {
        require(!error.empty());
    }
    return 0;
}
