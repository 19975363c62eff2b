#include "header_check.h"

void header_used_from_cxx();
void header_used_from_cxx()
{
    use_every_argument();
}
