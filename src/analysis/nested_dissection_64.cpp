/* Nested dissection with the 64-bit partitioner. */
#define WKL_METIS_WIDTH 64
#include "analysis/nested_dissection_body.h"

int64_t dissect_wide(const dissection_request *request)
{
    return dissect(request);
}
