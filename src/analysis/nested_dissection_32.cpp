/* Nested dissection with the 32-bit partitioner. */
#define WKL_METIS_WIDTH 32
#include "analysis/nested_dissection_body.h"

int64_t dissect_narrow(const dissection_request *request)
{
    return dissect(request);
}
