/* The packaged partitioner, in a file of its own: its header must not meet the one of the product's own copy. */
#pragma once

#include <cstdint>

/* Node ordering of a graph with n vertices, counted from 0, without loops: perm[n] and invp[n] out. False when the machine has none. */
bool packaged_node_ordering(int64_t n, const int64_t *start, const int64_t *neighbour, int64_t *perm, int64_t *invp);
