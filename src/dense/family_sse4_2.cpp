/* Kernels of the SSE4.2 family. */
#define WKL_FAMILY dense_sse4_2
#include "dense/family/family.h"
