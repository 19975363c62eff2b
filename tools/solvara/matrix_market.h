/* Matrix Market files: the reader that the command-line host, the tests and the benchmarks share. */
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

enum class market_field { real, integer, complex, pattern };
enum class market_symmetry { general, symmetric, skew_symmetric, hermitian };

/* A matrix in compressed sparse rows, 1-based, columns of a row ascending and distinct (duplicates of the file are summed). As in the file,
   only the lower triangle stands here unless the symmetry is general. Complex values are stored as pairs (real, imaginary); a pattern has
   the value 1 everywhere. The diagonal of a Hermitian matrix is kept as the file has it; what it means is the real part. */
struct market_matrix {
    market_field field = market_field::real;
    market_symmetry symmetry = market_symmetry::general;
    bool array = false; /* a dense file; its zeros are not kept */
    int64_t rows = 0, columns = 0;
    int64_t file_entries = 0; /* entries that the file holds, duplicates counted */
    std::vector<int64_t> ia;  /* [rows + 1] */
    std::vector<int64_t> ja;
    std::vector<double> value; /* [entries], or [2 * entries] for complex */
};

/* Read a file, gzipped or plain. False: `error` says what is wrong and names the line; `matrix` is then undefined. Numbers must be finite;
   sizes are believed only as far as data follows: nothing is allocated on the word of the header. */
bool read_matrix_market(const std::string &path, market_matrix *matrix, std::string *error);

/* The same for a text in memory. */
bool parse_matrix_market(const char *text, size_t length, market_matrix *matrix, std::string *error);

/* Fill rows and entries of `matrix`, whose size, field and symmetry stand already, from entries in any order (1-based, within the size);
   duplicates are summed. */
void market_compress(const std::vector<int64_t> &row, const std::vector<int64_t> &column, const std::vector<double> &value,
                     market_matrix *matrix);

/* The ordering (iparam(2)) that suits a system with all these entries. Minimum degree where there are few rows with few neighbours, as in
   planar grids and circuits: it takes a third of the time of a dissection there and leaves as few entries. Else nested dissection on all
   threads. */
inline int64_t market_suggest_ordering(const market_matrix &whole)
{
    return whole.rows <= 2000 && static_cast<int64_t>(whole.ja.size()) <= 6 * whole.rows ? 0 : 3;
}

/* The whole matrix, both triangles, with symmetry general; the diagonal of a Hermitian matrix loses its imaginary part. */
market_matrix market_expand(const market_matrix &matrix);

/* The other triangle of the same matrix, for a matrix with symmetry; the transpose, without conjugation, of a general one. */
market_matrix market_transpose(const market_matrix &matrix);

/* Write a vector as a dense file of one column: n values, or n pairs for complex; "-" is the standard output. False: `error` says why. */
bool write_market_vector(const std::string &path, const std::vector<double> &value, bool is_complex, std::string *error);

/* Read a vector of n numbers: any file of n rows and one column. Complex values are pairs. */
bool read_market_vector(const std::string &path, int64_t n, std::vector<double> *value, bool *is_complex, std::string *error);
