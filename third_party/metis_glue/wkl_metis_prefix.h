/* Included before every source file of the partitioner. System headers first, so that the names below change only the partitioner. */
#ifndef WKL_METIS_PREFIX_H
#define WKL_METIS_PREFIX_H

#include <setjmp.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include "wkl_metis_glue_names.h"
#include "wkl_metis_rename.h"

#define malloc wkl_metis_malloc
#define calloc wkl_metis_calloc
#define realloc wkl_metis_realloc
#define free wkl_metis_free

/* A library does not leave the process, and the only way out of an inner error is the guard. */
#define exit(code) wkl_metis_leave()
#define abort() wkl_metis_leave()
#define raise(signum) wkl_metis_leave()

/* Nothing is printed: no verbosity is ever asked for, and complaints about input come back as codes. */
static inline int wkl_metis_print_nothing(const char *format, ...)
{
    (void)format;
    return 0;
}
#define printf wkl_metis_print_nothing

/* The published entry points catch errors by process-wide signal handlers and a list of blocks per thread: the guard does both. */
#include <GKlib.h>
#undef gk_sigcatch
#define gk_sigcatch() 0
#define gk_sigtrap() ((void)0)
#define gk_siguntrap() ((void)0)
#define gk_malloc_init() 1
#define gk_malloc_cleanup(show) ((void)(show))

#endif
