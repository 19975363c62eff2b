#include "service/service.h"
#include "solver/control.h"

/* Widest supernode, tuned by type, thread count, order and processor. */
int64_t choose_panel_columns(int64_t matrix_type, int64_t threads, int64_t n, int64_t two_level, int64_t reproducible_units,
                             int64_t core_mode)
{
    const bool unsymmetric = matrix_type == 1 || matrix_type == 3 || matrix_type == 11 || matrix_type == 13;
    const bool new_processor = service_cpu_type() != 0;
    const bool large = n > 250000;
    int64_t columns = 0;
    if (unsymmetric)
        columns = threads == 1 ? 128 : threads <= 4 ? 96 : 72;
    else {
        columns = threads <= 4 ? 80 : 64;
        if (two_level != 0) columns = threads < 8 ? 64 : 48;
        if (new_processor && threads == 1) columns = 128;
        if (new_processor && threads >= 2 && large) columns = threads <= 4 ? 112 : 96;
    }
    if (reproducible_units != 0) columns = large ? 96 : 64;
    if (core_mode != 0 && n > 1000000) columns = 192;
    return columns;
}
