#include "matrix_market.h"
#include "market_lines.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <zlib.h>

namespace
{

/* Entries as they come, row and column 1-based. */
struct triplets {
    std::vector<int64_t> row, column;
    std::vector<double> value;
};

struct parser {
    market_lines lines;
    market_matrix *matrix;
    std::string *error;
    int64_t claimed = 0; /* entries that the header of a coordinate file promises */
    triplets entries;
};

bool fail(parser *p, const std::string &what)
{
    *p->error = "line " + std::to_string(p->lines.number) + ": " + what;
    return false;
}

bool is_space(char c)
{
    return c == ' ' || c == '\t' || c == '\v' || c == '\f';
}

/* Cut the next word off the front of a line; empty when there is none. */
std::string_view next_word(std::string_view *line)
{
    size_t first = 0;
    while (first < line->size() && is_space((*line)[first])) ++first;
    size_t last = first;
    while (last < line->size() && !is_space((*line)[last])) ++last;
    const std::string_view word = line->substr(first, last - first);
    line->remove_prefix(last);
    return word;
}

bool word_is(std::string_view word, const char *expected)
{
    return word.size() == std::strlen(expected) && std::equal(word.begin(), word.end(), expected, [](char a, char b) {
               return (a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a) == b;
           });
}

/* The next line that is neither a comment nor blank. */
bool next_data_line(parser *p, std::string_view *line)
{
    while (next_line(&p->lines, line)) {
        if (!line->empty() && line->front() == '%') continue;
        std::string_view rest = *line;
        if (!next_word(&rest).empty()) return true;
    }
    return false;
}

bool parse_integer(std::string_view word, int64_t *number)
{
    if (!word.empty() && word.front() == '+') word.remove_prefix(1);
    const auto [end, code] = std::from_chars(word.data(), word.data() + word.size(), *number);
    return code == std::errc() && end == word.data() + word.size() && !word.empty();
}

/* The slow way: exponents written with D, and numbers too small for a double, which become zero or a denormal. */
bool parse_unusual_number(std::string_view word, double *number)
{
    std::array<char, 128> text = {};
    if (word.size() >= text.size()) return false;
    for (size_t i = 0; i < word.size(); ++i) text[i] = word[i] == 'd' || word[i] == 'D' ? 'e' : word[i];
    if (std::strspn(text.data(), "+-.0123456789eE") != word.size()) return false;
    char *end = nullptr;
    *number = std::strtod(text.data(), &end);
    return end == text.data() + word.size() && std::isfinite(*number);
}

bool parse_number(std::string_view word, double *number)
{
    if (!word.empty() && word.front() == '+') word.remove_prefix(1);
    if (word.empty()) return false;
    const auto [end, code] = std::from_chars(word.data(), word.data() + word.size(), *number);
    if (code == std::errc() && end == word.data() + word.size()) return std::isfinite(*number);
    return parse_unusual_number(word, number);
}

bool parse_banner(parser *p)
{
    std::string_view line;
    if (!next_line(&p->lines, &line)) return fail(p, p->lines.failure != nullptr ? p->lines.failure : "the file is empty");
    market_matrix *a = p->matrix;
    if (!word_is(next_word(&line), "%%matrixmarket")) return fail(p, "does not begin with %%MatrixMarket");
    if (!word_is(next_word(&line), "matrix")) return fail(p, "the object is not 'matrix'");
    const std::string_view format = next_word(&line), field = next_word(&line), symmetry = next_word(&line);
    if (word_is(format, "array"))
        a->array = true;
    else if (!word_is(format, "coordinate"))
        return fail(p, "the format is neither 'coordinate' nor 'array'");
    if (word_is(field, "real") || word_is(field, "double"))
        a->field = market_field::real;
    else if (word_is(field, "integer"))
        a->field = market_field::integer;
    else if (word_is(field, "complex"))
        a->field = market_field::complex;
    else if (word_is(field, "pattern"))
        a->field = market_field::pattern;
    else
        return fail(p, "the field is none of 'real', 'integer', 'complex', 'pattern'");
    if (word_is(symmetry, "general"))
        a->symmetry = market_symmetry::general;
    else if (word_is(symmetry, "symmetric"))
        a->symmetry = market_symmetry::symmetric;
    else if (word_is(symmetry, "skew-symmetric"))
        a->symmetry = market_symmetry::skew_symmetric;
    else if (word_is(symmetry, "hermitian"))
        a->symmetry = market_symmetry::hermitian;
    else
        return fail(p, "the symmetry is none of 'general', 'symmetric', 'skew-symmetric', 'hermitian'");
    if (!next_word(&line).empty()) return fail(p, "unexpected text after the symmetry");
    if (a->field == market_field::pattern && a->array) return fail(p, "an array cannot be a pattern");
    if (a->field == market_field::pattern && a->symmetry == market_symmetry::skew_symmetric)
        return fail(p, "a pattern cannot be skew-symmetric");
    if (a->field != market_field::complex && a->symmetry == market_symmetry::hermitian)
        return fail(p, "a Hermitian matrix must be complex");
    return true;
}

bool parse_sizes(parser *p)
{
    std::string_view line;
    if (!next_data_line(p, &line)) return fail(p, p->lines.failure != nullptr ? p->lines.failure : "the size line is missing");
    market_matrix *a = p->matrix;
    bool good = parse_integer(next_word(&line), &a->rows) && parse_integer(next_word(&line), &a->columns);
    if (good && !a->array) good = parse_integer(next_word(&line), &p->claimed);
    if (!good || !next_word(&line).empty()) return fail(p, a->array ? "expected 'rows columns'" : "expected 'rows columns entries'");
    if (a->rows < 0 || a->columns < 0 || p->claimed < 0) return fail(p, "a size is negative");
    if (a->symmetry != market_symmetry::general && a->rows != a->columns) return fail(p, "a matrix with symmetry must be square");
    return true;
}

/* Values of one entry from the rest of its line, which must end there. */
bool parse_values(parser *p, std::string_view line, std::array<double, 2> *value)
{
    const market_field field = p->matrix->field;
    *value = {1.0, 0.0};
    if (field != market_field::pattern && !parse_number(next_word(&line), &(*value)[0])) return fail(p, "expected a finite number");
    if (field == market_field::complex && !parse_number(next_word(&line), &(*value)[1])) return fail(p, "expected a finite imaginary part");
    if (!next_word(&line).empty()) return fail(p, "unexpected text after the entry");
    return true;
}

bool add_entry(parser *p, int64_t row, int64_t column, const std::array<double, 2> &value)
{
    const market_symmetry symmetry = p->matrix->symmetry;
    if (symmetry != market_symmetry::general && column > row) return fail(p, "an entry above the diagonal in a file with symmetry");
    if (row == column && symmetry == market_symmetry::skew_symmetric && (value[0] != 0.0 || value[1] != 0.0)) {
        return fail(p, "a diagonal entry in a skew-symmetric matrix");
    }
    p->entries.row.push_back(row);
    p->entries.column.push_back(column);
    p->entries.value.push_back(value[0]);
    if (p->matrix->field == market_field::complex) p->entries.value.push_back(value[1]);
    return true;
}

bool parse_coordinates(parser *p)
{
    std::string_view line;
    std::array<double, 2> value;
    for (int64_t k = 0; k < p->claimed; ++k) {
        if (!next_data_line(p, &line)) {
            if (p->lines.failure != nullptr) return fail(p, p->lines.failure);
            return fail(p, "the file ends after " + std::to_string(k) + " of " + std::to_string(p->claimed) + " entries");
        }
        int64_t row = 0, column = 0;
        if (!parse_integer(next_word(&line), &row) || !parse_integer(next_word(&line), &column)) return fail(p, "expected 'row column'");
        if (row < 1 || row > p->matrix->rows) return fail(p, "row number out of range");
        if (column < 1 || column > p->matrix->columns) return fail(p, "column number out of range");
        if (!parse_values(p, line, &value) || !add_entry(p, row, column, value)) return false;
    }
    p->matrix->file_entries = p->claimed;
    return true;
}

/* Column by column; a file with symmetry has only the lower triangle, a skew one without the diagonal. */
bool parse_array(parser *p)
{
    const market_matrix &a = *p->matrix;
    std::string_view line;
    std::array<double, 2> value;
    const int64_t skip = a.symmetry == market_symmetry::skew_symmetric ? 1 : 0;
    for (int64_t column = 1; column <= a.columns; ++column) {
        const int64_t first = a.symmetry == market_symmetry::general ? 1 : column + skip;
        if (first > a.rows) break; /* no entries in this column, nor in those that follow */
        for (int64_t row = first; row <= a.rows; ++row) {
            if (!next_data_line(p, &line)) return fail(p, p->lines.failure != nullptr ? p->lines.failure : "the file ends too early");
            if (!parse_values(p, line, &value)) return false;
            ++p->matrix->file_entries;
            if ((value[0] != 0.0 || value[1] != 0.0) && !add_entry(p, row, column, value)) return false;
        }
    }
    return true;
}

bool parse(parser *p)
{
    if (!parse_banner(p) || !parse_sizes(p)) return false;
    if (!(p->matrix->array ? parse_array(p) : parse_coordinates(p))) return false;
    std::string_view line;
    if (next_data_line(p, &line)) return fail(p, "more entries than the header promises");
    if (p->lines.failure != nullptr) return fail(p, p->lines.failure);
    /* Row pointers cost memory for each row, so a matrix must not be all but empty. */
    const int64_t sensible = 65536 + 256 * static_cast<int64_t>(p->entries.row.size());
    if (p->matrix->rows > sensible || p->matrix->columns > sensible) return fail(p, "far more rows or columns than entries");
    market_compress(p->entries.row, p->entries.column, p->entries.value, p->matrix);
    return true;
}

bool parse_guarded(market_read *read, void *source, market_matrix *matrix, std::string *error)
{
    try {
        *matrix = market_matrix();
        parser p = {};
        p.lines.read = read;
        p.lines.source = source;
        p.matrix = matrix;
        p.error = error;
        return parse(&p);
    } catch (const std::bad_alloc &) {
        *error = "not enough memory";
        return false;
    }
}

int64_t read_compressed(void *source, char *buffer, size_t size)
{
    return gzread(static_cast<gzFile>(source), buffer, static_cast<unsigned>(size));
}

int64_t read_text(void *source, char *buffer, size_t size)
{
    auto *rest = static_cast<std::string_view *>(source);
    const size_t count = std::min(size, rest->size());
    std::copy_n(rest->data(), count, buffer);
    rest->remove_prefix(count);
    return static_cast<int64_t>(count);
}

} // namespace

bool parse_matrix_market(const char *text, size_t length, market_matrix *matrix, std::string *error)
{
    std::string_view rest(text, length);
    return parse_guarded(read_text, &rest, matrix, error);
}

bool read_matrix_market(const std::string &path, market_matrix *matrix, std::string *error)
{
    gzFile file = gzopen(path.c_str(), "rb"); /* reads plain files as they are */
    if (file == nullptr) {
        *error = path + ": cannot be opened";
        return false;
    }
    const bool good = parse_guarded(read_compressed, file, matrix, error);
    gzclose(file);
    if (!good) *error = path + ": " + *error;
    return good;
}
