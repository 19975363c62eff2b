/* Names of the partitioner's helper library that lead to the glue, for its own files and for ours that call its inner routines. */
#ifndef WKL_METIS_GLUE_NAMES_H
#define WKL_METIS_GLUE_NAMES_H

#include "wkl_metis_guard.h"

#define gk_malloc wkl_metis_gk_malloc
#define gk_realloc wkl_metis_gk_realloc
#define gk_free wkl_metis_gk_free
#define gk_idxsmalloc wkl_metis_gk_idxsmalloc
#define gk_errexit wkl_metis_gk_errexit
#define errexit wkl_metis_errexit
#define gk_randinit wkl_metis_gk_randinit
#define gk_randint32 wkl_metis_gk_randint32
#define gk_randint64 wkl_metis_gk_randint64
#define gk_log2 wkl_metis_gk_log2
#define gk_CPUSeconds wkl_metis_gk_cpu_seconds

#endif
