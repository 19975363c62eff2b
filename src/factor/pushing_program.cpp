#include "factor/update_program.h"

/* The update program of small Cholesky factors, which lists for each source where its products go. */

namespace
{

/* Most products for each entry of the factors: with more, dense updates pay. */
constexpr double products_per_entry = 8;

int64_t places_of(int64_t rows)
{
    return rows * (rows + 1) / 2;
}

/* The places of an update: those of its first column are written last, since the offsets of the rows stand there. */
int32_t *write_places(const supernodal_structure &s, const program_update &u, int32_t *word)
{
    const int64_t first = s.xsuper[u.target - 1];
    for_each_place(s, u, [=](int64_t i, int64_t at) { word[i] = static_cast<int32_t>(at); });
    const auto column_of = [&](int64_t k) { return static_cast<int32_t>(s.xlnz[first + word[k] - 1] - 1); };
    int32_t *next = word + u.q;
    for (int64_t k = 1; k < u.k; ++k) {
        const int32_t column = column_of(k);
        for (int64_t i = k; i < u.q; ++i) *next++ = column + word[i];
    }
    const int32_t column = column_of(0);
    for (int64_t i = 0; i < u.q; ++i) word[i] += column;
    return next;
}

} // namespace

int64_t pushing_program_words(const supernodal_structure &s, int64_t most_words)
{
    int64_t words = 1, next = 1;
    double products = 0;
    for (int64_t number = 1; number <= s.supernodes; ++number) {
        const int64_t w = supernode_columns(s, number), places = places_of(supernode_rows(s, number) - w);
        if (s.xlnz[s.xsuper[number - 1] - 1] != next) return 0; /* the kernel goes from block to block */
        next = s.xlnz[s.xsuper[number] - 1];
        words += pushing_head_words + places;
        products += static_cast<double>(w) * static_cast<double>(places);
        if (words > most_words) return 0;
    }
    return products <= products_per_entry * static_cast<double>(s.nnz_l) ? words : 0;
}

void build_pushing_program(const supernodal_structure &s, int32_t *program)
{
    program[0] = static_cast<int32_t>(factor_kind::cholesky) | program_of_pushes;
    int32_t *word = program + 1;
    for (int64_t number = 1; number <= s.supernodes; ++number) {
        const int64_t columns = supernode_columns(s, number);
        *word++ = static_cast<int32_t>(columns);
        *word++ = static_cast<int32_t>(supernode_rows(s, number) - columns);
        for_each_update_of(s, number, [&](const program_update &u) { word = write_places(s, u, word); });
    }
}
