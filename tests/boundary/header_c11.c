#include "header_check.h"

void header_used_from_c(void);
void header_used_from_c(void)
{
    use_every_argument();
}
