/* Kernels of the SSE2 family. */
#define WKL_FAMILY dense_sse2
#include "dense/family/family.h"
