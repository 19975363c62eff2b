/* wkldriver: direct solution of large sparse linear systems, and the product of a sparse symmetric matrix with a vector.

   All integers are signed 64-bit and all arguments go by address, so the functions can be called from C, C++ and, through bind(c), from
   Fortran. The one exception is the last argument of wkl_dcsrsymv_driver, a 32-bit integer by value.

   Sparse matrices are given in compressed sparse row form. With n rows,
     ia[0..n]   row pointers: row i (i = 1..n) holds positions ia[i-1] .. ia[i] - 1 of ja and a, counted from ia[0]
     ja[]       column numbers, rising strictly within each row
     a[]        values, in the order of ja
   Numbers are 1-based (ia[0] is 1); solvara_driver takes 0-based ones too, see iparam(35). Positions of iparam are told 1-based as in
   iparam(60), which is iparam[59] in C. Both functions may be entered from several threads at once; two calls of solvara_driver on the
   same handle must not overlap. */
#ifndef WKLDRIVER_H
#define WKLDRIVER_H

#include <stdint.h>

#if defined(_WIN32)
#define WKL_API
#else
#define WKL_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* solvara_driver: solve A X = B, phase by phase.

   The caller calls again and again on one handle; ido says which phases run. Between calls the handle keeps the analysis and up to
   *max_fac_store factorizations of matrices of that pattern. ia, ja, a, perm, b and x stay the caller's; unless told otherwise they are
   only read, and the same arrays must be passed to later calls of the handle.

   Arguments

   handle          inout  array of 64 pointers, all null before the first call; never changed by the caller afterwards. Holds all memory
                          and files of this system until ido -1.
   max_fac_store   in     how many factorizations the handle keeps, >= 1. Later calls may pass less, not more.
   matrix_number   in     which of them this call addresses, 1 .. *max_fac_store.
   matrix_type     in     1   real, structurally symmetric             3   complex, structurally symmetric
                          2   real, symmetric positive definite        4   complex, Hermitian positive definite
                         -2   real, symmetric indefinite              -4   complex, Hermitian indefinite
                                                                        6   complex, symmetric
                         11   real, nonsymmetric                       13   complex, nonsymmetric
                          For 2, -2, 4, -4 and 6 only the upper triangle is given: each row starts with its diagonal entry and goes on
                          to the right. -2, -4 and 6 accept a missing diagonal entry as zero. Types 1 and 3 have a nonsymmetric matrix
                          with a symmetric pattern and are given whole, as 11 and 13 are.
   ido             in     -3, -2    queries, see below
                          -1        release everything that the handle holds; it is empty afterwards and can be used anew
                           0        release the factors of *matrix_number only
                          11        analysis: matching and scaling, fill-reducing ordering, symbolic factorization
                          12        analysis and numeric factorization
                          13        analysis, numeric factorization and solve
                          22        numeric factorization
                          23        numeric factorization and solve
                          33        solve with iterative refinement
                          331, 332, 333   one step of a solve: forward, diagonal, backward; b is the right-hand side of the step
   neqns           in     number n of equations, >= 1; the same in all calls of a handle
   a               in     values: double, or float when single precision is chosen by iparam(28); complex types hold pairs (real,
                          imaginary). A nonzero imaginary part of a diagonal entry of types 4 and -4 is taken as zero.
   ia, ja          in     pattern. Not checked unless iparam(27) asks for it: entries out of range, or rows out of order, with the
                          checker off are the caller's fault and may end in any way.
   perm            inout  [n] read, written or ignored as iparam(5) says; null when ignored. With iparam(31) a list of marks.
   nb              in     number of right-hand sides, >= 1
   iparam          inout  [64] parameters and results, below
   msglvl          in     0 silent; otherwise messages and statistics go to the standard output. 2 also prints the internal version.
   b               inout  [n * nb] right-hand sides, column by column, of the type of a. Overwritten by X when iparam(6) is 1.
   x               out    [n * nb] solution X, column by column. A work space when iparam(6) is 1.
   error           out    0, or a code from the list below

   Queries. ido -2 stores 16 in *error and 23 in iparam(1); ido -3 stores 300000 in *error. No other argument is looked at.

   Diagonal systems. When ido is positive and the matrix has exactly n stored entries, it is taken as diagonal: nothing is kept behind
   the handle, iparam(12) becomes -1, and each call that solves divides b by a. iparam(22) and iparam(23) count the signs of real
   matrices. An empty row or a zero value gives error -7. Set iparam(12) to 0 again before another matrix is solved with this iparam.

   Parameters. Positions not listed are reserved: pass 0. "Types" are matrix types. in: read; out: written; * next to a number: default.

   iparam(1)   inout  0: this call fills iparam with the defaults of *matrix_type and sets this position to 1. Otherwise the caller's
                      values hold; only with 1 is iparam(4) split into its digits.
   iparam(2)   in     fill-reducing ordering: 0 minimum degree, 2* nested dissection (1 is taken likewise), 3 nested dissection on all
                      threads. 4 and more is refused.
   iparam(3)   out    threads of this call, computed from the environment (WKL_NUM_THREADS, WKL_DOMAIN_NUM_THREADS, WKL_DYNAMIC,
                      OMP_NUM_THREADS) and n; whatever the caller stored is overwritten
   iparam(4)   in     0*: direct solve. Otherwise 10 * k + m solves by iteration with earlier factors as preconditioner, and factors
                      anew when that does not pay: m = 1 CGS, m = 2 CG, to a relative accuracy of 10^-k (10^-12 for k = 0). Negative:
                      at most 150 iterations, and their failure is an error.
   iparam(5)   in     0*: perm is not used. 1: perm is the ordering to use, perm[k-1] the column that becomes k-th.
                      2: the computed ordering is returned in perm in the same form. Negative: the same, right after the analysis.
   iparam(6)   in     0*: solution in x. 1: solution in b, x is a work space. 2 and more is refused.
   iparam(7)   out    steps of iterative refinement made
   iparam(8)   in     |value| is the largest number of refinement steps; negative: residuals in extended precision. With 0* two steps
                      are still made after a factorization with perturbed pivots.
   iparam(10)  in     pivots below 10^-value, relative to the matrix norm, are perturbed. 13* for types 1, 3, 11, 13; 8* for -2, -4, 6.
   iparam(11)  in     1: scale rows and columns (1* for 11, 13, else 0*; takes part for -2, -4, 6, 11, 13 when iparam(13) is positive)
   iparam(12)  inout  which system is solved:
                        types 1, 11    0*: A X = B     1 or 2: A^T X = B
                        types 3, 13    0*: A X = B     1: A^H X = B (conjugate transpose)     2: A^T X = B (plain transpose)
                        types 4, -4    0*, 1: A X = B (A^H is A)     2: A^T X = B, that is conj(A) X = B
                        type 6         0*, 2: A X = B (A^T is A)     1: A^H X = B, that is conj(A) X = B
                        types 2, -2    A X = B, whatever is stored here
                      Values above 2 count as 0. Becomes -1 for a diagonal system.
   iparam(13)  in     1: permute large entries to the diagonal by weighted matching (1* for 11, 13, else 0*; for -2, -4, 6, 11, 13).
                      2: another matching routine.
   iparam(14)  inout  number of perturbed pivots. A positive value on entry of ido 33 overrides the stored count.
   iparam(15)  out    memory in kilobytes: peak of the analysis
   iparam(16)  out    kilobytes held after the analysis
   iparam(17)  out    kilobytes of factorization and solve beyond that
   iparam(18)  inout  negative (-1*): the number of entries of the factors is returned here
   iparam(19)  inout  negative (-1*): the operations of the factorization are counted and returned here, in millions. One operation is
                      one real addition or multiplication.
   iparam(20)  out    iterations of a successful CG or CGS; after a failure status - 10 * iterations, with status -1 divergence, -2 too
                      slow, -3 limit reached, -4 work space. -5: not tried, the factorization is cheaper. -34: two automatic refinement
                      steps were made, the next numeric call factors anew.
   iparam(21)  in     pivoting of indefinite types: 0 only 1 by 1 pivots, 1 also 2 by 2 (Bunch and Kaufman). 1* for -2, -4, 6, else 0*.
   iparam(22)  out    number of positive pivots (eigenvalues) of a symmetric or Hermitian matrix
   iparam(23)  out    number of negative ones
   iparam(24)  in     parallel factorization: 0* one level of tasks, 1 two levels. 1 is refused out of core, and takes part only with
                      more than one thread and nested dissection.
   iparam(25)  in     1: solve several right-hand sides with one thread; 0*: with all
   iparam(27)  inout  not 0: check ia and ja once; a passed check stores 0 here. A failed one gives error -1 and leaves the handle
                      usable. 0*: no check.
   iparam(28)  in     at the analysis: 0* double precision, 1 single precision; stays so until the next analysis
   iparam(30)  out    after error -4: row of the failing pivot, 1-based
   iparam(31)  inout  partial solve. Not 0 at ido 11, 12 or 13, with iparam(4), iparam(8) and iparam(60) all 0: perm marks rows by 1
                      (others hold 0); marked rows are ordered last, perm returns that ordering, iparam(5) becomes 1 and iparam(48)
                      the number of marked rows. At a solve with iparam(48) still set:
                        1  only marked rows of B are read, and only marked rows of X are written
                        2  only marked rows of B are read (others count as 0), and all of X is written
                        3  all of B is read, and only marked rows of X are written
                      No refinement takes place then. With matching, types 11 and 13 take for a marked row of B (of X, when the system
                      is transposed) the one that was permuted to the diagonal of the marked unknown: iparam(13) 0 leaves rows as marked.
                      After a failed check of iparam(27): position of the finding.
   iparam(32)  out    after a failed check: left value of the finding
   iparam(33)  out    after a failed check: right value of the finding
   iparam(34)  inout  reproducible results on a number of work units. 0* at entry: set to -1, or to the number of cores when a
                      reproducibility branch is set by WKL_CBWR. Positive: bits do not depend on the number of threads (in core).
   iparam(35)  in     0*: ia, ja and perm are 1-based; not 0: they are 0-based, and are copied
   iparam(48)  inout  see iparam(31)
   iparam(50)  out    becomes 0
   iparam(56)  in     not 0 when the handle is made: the pivot callback is consulted
   iparam(57)  out    core mode that was taken: 0 in core, 2 out of core
   iparam(60)  in     0*: factors stay in memory. 1: in memory when they fit the limit of WKL_SOLVARA_OOC_MAX_CORE_SIZE, else in files.
                      2: in files (see WKL_SOLVARA_OOC_PATH and the file solvara_ooc.cfg).
   iparam(61)  out    kilobytes: peak of the analysis
   iparam(62)  out    kilobytes that an out-of-core factorization needs at least
   iparam(63)  out    kilobytes of an out-of-core solve
   iparam(64)  out    internal version, 103911000

   Error codes

     0   success
    -1   input inconsistent: sequence of ido, a parameter, or (with iparam(27)) the matrix
    -2   not enough memory
    -3   failure in ordering or symbolic factorization
    -4   failure in the numeric factorization (zero or not positive pivot), in refinement, or in CG/CGS; see iparam(20), iparam(30)
    -5   unclassified error
    -6   matching failed: structurally singular
    -7   diagonal system with an empty row or a zero value; any input error when the call is silent may show as -1 or -7
    -8   integer overflow in ordering or symbolic factorization
    -9   the memory limit for out-of-core work is too small
   -10   temporary files cannot be opened
   -11   temporary files cannot be read or written
   With msglvl not 0 the details are printed. Every refusal leaves the handle usable. */
WKL_API void solvara_driver(void **handle, const int64_t *max_fac_store, const int64_t *matrix_number, const int64_t *matrix_type,
                            const int64_t *ido, const int64_t *neqns, const void *a, const int64_t *ia, const int64_t *ja, int64_t *perm,
                            const int64_t *nb, int64_t *iparam, const int64_t *msglvl, void *b, void *x, int64_t *error);

/* wkl_dcsrsymv_driver: y = A x for a real symmetric matrix of which one triangle is stored.

   uplo       in   "L" or "l": the lower triangle is stored, "U" or "u": the upper one; only the first character is read. Entries on the
                   other side of the diagonal are skipped.
   m          in   order of A, >= 0
   a          in   values of the triangle
   ia         in   [m + 1] row pointers; ia[0] is their base, usually 1
   ja         in   column numbers, always 1-based, in any order within a row
   x          in   [m]
   y          out  [m]; overlaps nothing. What it held before does not matter.
   uplo_len   in   length of the text uplo, by value; not read

   An uplo that is neither, or a negative m, is reported on the standard output and y stays untouched. The same input gives the same
   bits every run for a given number of threads and kind of processor. */
WKL_API void wkl_dcsrsymv_driver(const char *uplo, const int64_t *m, const double *a, const int64_t *ia, const int64_t *ja, const double *x,
                                 double *y, int32_t uplo_len);

#ifdef __cplusplus
}
#endif
#endif
