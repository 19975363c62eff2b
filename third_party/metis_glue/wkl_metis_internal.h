/* The inner routines and records of the partitioner (graph_t, ctrl_t, MlevelNodeBisectionMultiple, CompressGraph, genmmd, ...), for one
   index width. Define WKL_METIS_WIDTH to 64 or 32 before including; one width in one source file, as records and macros share names.
   Include it last: its headers define many short macros. Calls into it run under wkl_metis_guard. */
#ifndef WKL_METIS_INTERNAL_H
#define WKL_METIS_INTERNAL_H

#if WKL_METIS_WIDTH != 64 && WKL_METIS_WIDTH != 32
#error "define WKL_METIS_WIDTH to 64 or 32 before including this header"
#endif

#include <assert.h>
#include <ctype.h>
#include <errno.h>
#include <float.h>
#include <inttypes.h>
#include <limits.h>
#include <math.h>
#include <regex.h>
#include <setjmp.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <time.h>

#include "wkl_metis_glue_names.h"

#ifdef __cplusplus
extern "C" {
#endif
#if WKL_METIS_WIDTH == 64
#include "metis64/wkl_metis_rename.h" /* first: it renames what the next one declares */

#include "metis64/metis.h"
#else
#include "metis32/wkl_metis_rename.h" /* first: it renames what the next one declares */

#include "metis32/metis.h"
#endif
#include <metislib.h>
#ifdef __cplusplus
}
#endif

#endif
