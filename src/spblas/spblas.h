/* Products of a sparse matrix in compressed sparse row form with a vector, y = alpha * op(A) * x + beta * y, for the boundary and for the
   solver's residuals.

   Storage: row i holds positions pntrb[i-1] - base .. pntre[i-1] - base - 1 of `a` and `ja`, where base is pntrb[0]; column numbers in
   `ja` are 1-based whatever the base. Three-array storage passes pntrb = ia and pntre = ia + 1. Entries of a row stand in any order and
   may repeat; entries on the side of the diagonal that a form does not use are skipped. x and y do not overlap.

   Threads: rows are cut into blocks, one a thread. Forms that write into foreign rows give every thread but one a private vector, and
   vectors are added in a fixed order: for a given size, team and processor type the result has the same bits every run. The team is
   service_max_threads(); with dynamic threading on, forms with private vectors take at most 8 threads and one for each 100 rows. When
   memory for a private vector is not to be had, the product runs serially, without a word. */
#pragma once

#include <cstdint>

/* ---- the exported symmetric product ---- */

/* Check the arguments of the symmetric product. Returns 0, or 1 after reporting parameter 1 (uplo is neither L nor U, any case) or
   parameter 2 (m is negative) through service_xerbla. Only uplo and m are looked at; uplo_len is never read. */
int64_t symv_check(const char *uplo, const int64_t *m, const double *a, const int64_t *ia, const int64_t *ja, const double *x, double *y,
                   int32_t uplo_len);

/* y = A * x for a symmetric A of order m, of which one triangle is stored: the lower one for an uplo of L or l, else the upper one.
   in  a, ja  values and 1-based columns    in  ia[m+1]  row pointers, ia[0] is their base
   in  x[m]                                 out y[m]     what it held before, NaN included, does not matter */
void symv_dispatch(const char *uplo, const int64_t *m, const double *a, const int64_t *ia, const int64_t *ja, const double *x, double *y,
                   int32_t uplo_len);

/* Do the first characters of two texts agree, as letters regardless of case? The lengths are not looked at. */
bool lsame(const char *a, const char *b, int32_t a_len, int32_t b_len);

/* ---- the forms of a product ---- */

enum class csr_structure {
    general,       /* m by k */
    symmetric,     /* one triangle stored; no conjugation, also for complex values */
    antisymmetric, /* one triangle stored, the other is its negative; the diagonal is zero and stored diagonal entries are skipped */
    hermitian,     /* one triangle stored, the other is its conjugate; diagonal entries must be real; symmetric for real values */
    triangular,    /* the stored triangle only */
    diagonal       /* the diagonal entries only */
};
enum class csr_triangle { lower, upper };
enum class csr_diagonal { stored, unit }; /* unit: ones, whatever is stored there */
enum class csr_operation { none, transpose, conjugate_transpose };

struct csr_form {
    csr_structure structure;
    csr_triangle triangle;   /* not read for general and diagonal */
    csr_diagonal diagonal;   /* not read for general and antisymmetric */
    csr_operation operation; /* conjugate_transpose is transpose for real values */
    bool one_order = false;  /* additions in an order that does not depend on the number of threads */
};

/* y = alpha * op(A) * x + beta * y for any form; beta 0 overwrites y, NaN included.
   in  m, k      rows and columns of A (k is m for all but general forms)
   in  x         k entries, m when transposed       inout y  m entries, k when transposed
   value_t: float, double, std::complex<float>, std::complex<double>. Never fails. */
template <typename value_t>
void csr_product(const csr_form &form, int64_t m, int64_t k, value_t alpha, const value_t *a, const int64_t *ja, const int64_t *pntrb,
                 const int64_t *pntre, const value_t *x, value_t beta, value_t *y);

/* csr_product with the form told in letters, regardless of case.
   transa      N, T or C
   descriptor  first letter G general, S symmetric, A antisymmetric, T triangular, D diagonal; H acts as S (for the conjugating product of
               a Hermitian matrix use csr_structure::hermitian); second letter L lower, anything else upper; third letter N stored
               diagonal, anything else unit; the fourth must not be C (0-based columns are not served)
   Returns 0, or the position of the argument that makes no sense (1 or 2), with y untouched. */
template <typename value_t>
int64_t csr_multiply(const char *transa, const char *descriptor, int64_t m, int64_t k, value_t alpha, const value_t *a, const int64_t *ja,
                     const int64_t *pntrb, const int64_t *pntre, const value_t *x, value_t beta, value_t *y);

/* ---- the drivers by name: ng general, tg general transposed, na antisymmetric, ns symmetric, nt triangular; l lower, u upper; n stored
        diagonal, u unit diagonal ---- */
using csr_driver = void(const int64_t *m, const int64_t *k, const double *alpha, const double *a, const int64_t *ja, const int64_t *pntrb,
                        const int64_t *pntre, const double *x, double *y, const double *beta);
csr_driver wkl_spblas_dcsr1ng__f__mvout_omp, wkl_spblas_dcsr1tg__f__mvout_omp;
csr_driver wkl_spblas_dcsr1nal_f__mvout_omp, wkl_spblas_dcsr1nau_f__mvout_omp;
csr_driver wkl_spblas_dcsr1nslnf__mvout_omp, wkl_spblas_dcsr1nsunf__mvout_omp;
csr_driver wkl_spblas_dcsr1nsluf__mvout_omp, wkl_spblas_dcsr1nsuuf__mvout_omp;
csr_driver wkl_spblas_dcsr1ntlnf__mvout_omp, wkl_spblas_dcsr1ntluf__mvout_omp;
csr_driver wkl_spblas_dcsr1ntunf__mvout_omp, wkl_spblas_dcsr1ntuuf__mvout_omp;
