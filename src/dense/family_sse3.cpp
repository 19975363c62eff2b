/* Kernels of the SSE3 family. */
#define WKL_FAMILY dense_sse3
#include "dense/family/family.h"
