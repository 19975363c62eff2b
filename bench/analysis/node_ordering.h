/* The packaged partitioner, in a file of its own: its header must not meet the one of the product's own copy, whose indices are wider. */
#pragma once

#include <cstdint>
#include <functional>

/* Node ordering of a graph with n vertices, counted from 0, without loops. The graph is copied into the index type of the package here, so
   that the function returned is the ordering alone; each call writes perm[n] and invp[n] and returns false on an error of the package.
   Empty when the machine has none. */
std::function<bool()> packaged_node_ordering(int64_t n, const int64_t *start, const int64_t *neighbour, int64_t *perm, int64_t *invp);
