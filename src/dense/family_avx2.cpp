/* Kernels of the AVX2 with fused multiply-add family. */
#define WKL_FAMILY dense_avx2
#include "dense/family/family.h"
