/* Out-of-core: configuration and the file layer behind block_pager. */
#pragma once

#include <cstdint>

#include "state/factor_store.h"
#include "state/records.h"

/* Settings from the environment and the configuration file. Always returns 0. path receives up to 1,000 bytes, terminated. */
int64_t ooc_configure(char *path, ooc_state *state, int64_t msglvl);
