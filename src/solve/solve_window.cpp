/* The window of a partial solve. */
#include "solve/solve_internal.h"

/* With count rows marked last, r = n - count + 1 is the first of them and s its supernode. The request says which rows go in and which come
   out: 1 the last rows in, the last rows out; 2 the last rows in, all out; 3 all in, the last rows out; above 3 all in, all out. Rows of
   s before r are cleared where the gather did not fill them, since the sweeps work on whole supernodes. */
void choose_window(const supernodal_structure *s, int64_t window_first, int64_t window_count, int64_t solve_step_code, solve_window *window)
{
    *window = {1, 1, 1, 1, 1, 0, true};
    if (window_first < 1 || window_count < 1 || s->supernodes < 1) return;
    const int64_t count = window_count < s->neqns ? window_count : s->neqns;
    const int64_t row = s->neqns - count + 1;
    int64_t number = s->supernodes;
    while (s->xsuper[number - 1] > row) --number;
    *window = {row, row, number, number, 1, 0, true};
    switch (window_first) {
    case 1:
        window->zero_from = s->xsuper[number - 1];
        window->zero_to = row - 1;
        window->allows_domains = false;
        break;
    case 2:
        window->scatter_first_row = 1;
        window->backward_last_supernode = 1;
        if (solve_step_code == 3) {
            window->gather_first_row = 1;
        } else {
            window->zero_to = row - 1;
            window->allows_domains = false;
        }
        break;
    case 3:
        window->gather_first_row = 1;
        window->forward_first_supernode = 1;
        break;
    default:
        window->scatter_first_row = 1;
        window->backward_last_supernode = 1;
        window->gather_first_row = 1;
        window->forward_first_supernode = 1;
        break;
    }
}
