/* Stands in for the file layer until it exists: the files cannot be opened, and every caller says so. */
#include "ooc/ooc.h"

void ooc_buffer_sizes(const ooc_request *, int64_t, int64_t *buffer_l, int64_t *buffer_u, int64_t *buffer_v)
{
    *buffer_l = *buffer_u = *buffer_v = 0;
}

int64_t ooc_prepare(const ooc_request *request)
{
    request->state->stage_error = -10;
    return -10;
}

const block_pager *ooc_open(const ooc_request *request, ooc_purpose, void *, int64_t, void *, int64_t)
{
    request->state->stage_error = -10;
    return nullptr;
}

int64_t ooc_close(const ooc_request *, ooc_purpose)
{
    return 0;
}

void ooc_delete(ooc_state *, int64_t)
{
}
