/* Kernels of the SSSE3 family. */
#define WKL_FAMILY dense_ssse3
#include "dense/family/family.h"
