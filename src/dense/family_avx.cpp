/* Kernels of the AVX family. */
#define WKL_FAMILY dense_avx
#include "dense/family/family.h"
