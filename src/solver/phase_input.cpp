/* The working input: the caller's arrays where they serve as they stand, else copies that are 1-based, hold a leading diagonal entry in
   every row (types whose factorization needs it), and have real Hermitian diagonals. Row pointers that do not rise from the base are
   handed on as they are, without a look at ja through them: the matrix checker finds them. */
#include <complex>
#include <cstring>

#include "service/service.h"
#include "solver/control.h"

namespace
{
constexpr int64_t largest_count = int64_t{1} << 56; /* of entries; keeps byte counts in range */

/* Type to be factored with 1x1 and 2x2 pivots: every diagonal entry must be stored. */
bool needs_full_diagonal(int64_t matrix_type)
{
    return matrix_type == -4 || matrix_type == -2 || matrix_type == 6;
}

bool stores_triangle(int64_t matrix_type)
{
    return matrix_type < 0 || matrix_type % 2 == 0;
}

void *zeroed(int64_t count, int64_t bytes)
{
    return count < 1 || count > largest_count ? nullptr : service_calloc(count, bytes, 128);
}

bool no_memory_for(solver_call *call, int64_t count, int64_t bytes)
{
    return out_of_memory(call, memory_global_structure, count > largest_count ? INT64_MAX : count * bytes);
}

bool rises_from_base(int64_t n, const int64_t *ia, int64_t base)
{
    if (ia[0] != base) return false;
    for (int64_t i = 0; i < n; ++i) {
        if (ia[i + 1] < ia[i]) return false;
    }
    return true;
}

/* Row i (from 0) without its leading diagonal entry. Types that are factored without pivoting on the diagonal keep empty rows and rows that
   start below it, which the checker is to find; elsewhere the analysis takes the first entry of a row for the diagonal. */
bool lacks_diagonal(const solver_call *call, int64_t i, int64_t base)
{
    const int64_t start = call->ia[i] - base;
    const bool empty = call->ia[i] == call->ia[i + 1];
    if (needs_full_diagonal(call->matrix_type)) return empty || call->ja[start] != i + base;
    return !empty && call->ja[start] > i + base;
}

/* List the rows without a leading diagonal entry, with their count in front. */
bool inspect_diagonal(solver_call *call)
{
    if (!call->analyses || call->diagonal_count >= 0) return true;
    const int64_t base = call->control->zero_based != 0 ? 0 : 1, n = call->neqns;
    const bool readable =
        n >= 1 && call->ia != nullptr && call->ja != nullptr && stores_triangle(call->matrix_type) && rises_from_base(n, call->ia, base);
    call->diagonal_count = 0;
    for (int64_t i = 0; readable && i < n; ++i) {
        if (lacks_diagonal(call, i, base)) ++call->diagonal_count;
    }
    auto *list = static_cast<int64_t *>(zeroed(call->diagonal_count + 1, 8));
    if (list == nullptr) return no_memory_for(call, call->diagonal_count + 1, 8);
    call->copies->diagonal_list = list;
    list[0] = call->diagonal_count;
    int64_t found = 0;
    for (int64_t i = 0; found < call->diagonal_count; ++i) {
        if (lacks_diagonal(call, i, base)) list[++found] = i + 1;
    }
    return true;
}

int64_t one_based(int64_t value, int64_t base)
{
    return base == 1 || value == INT64_MAX ? value : value + 1;
}

void fill_pattern(const solver_call *call, int64_t base)
{
    const int64_t n = call->neqns;
    int64_t *ia = call->copies->ia, *ja = call->copies->ja;
    if (call->diagonal_count == 0) {
        for (int64_t i = 0; i <= n; ++i) ia[i] = one_based(call->ia[i], base);
        for (int64_t p = 0; p < call->ia[n] - base; ++p) ja[p] = one_based(call->ja[p], base);
        return;
    }
    const int64_t *list = call->copies->diagonal_list + 1, *const list_end = list + call->diagonal_count;
    int64_t next = 0;
    for (int64_t i = 0; i < n; ++i) {
        ia[i] = next + 1;
        if (list < list_end && *list == i + 1) {
            ja[next++] = i + 1;
            ++list;
        }
        for (int64_t p = call->ia[i] - base; p < call->ia[i + 1] - base; ++p) ja[next++] = one_based(call->ja[p], base);
    }
    ia[n] = next + 1;
}

/* 1-based ia and ja with the missing diagonal entries in place; made once for an analysis. */
bool convert_pattern(solver_call *call)
{
    input_copies *copies = call->copies;
    const bool zero_based = call->control->zero_based != 0;
    if (copies->ia == nullptr && (zero_based || call->diagonal_count > 0)) {
        if (call->ia == nullptr || call->ja == nullptr) return refuse(call, code_empty_arrays);
        const int64_t n = call->neqns;
        if (n < 1 || call->ia[n] < 0) return refuse(call, code_invalid_sizes);
        if (call->ia[n] > largest_count) return no_memory_for(call, call->ia[n], 8);
        const int64_t entries = call->ia[n] + call->diagonal_count + 1;
        copies->ia = static_cast<int64_t *>(zeroed(n + 1, 8));
        if (copies->ia == nullptr) return no_memory_for(call, n + 1, 8);
        copies->ja = static_cast<int64_t *>(zeroed(entries, 8));
        if (copies->ja == nullptr) {
            service_free_direct(copies->ia);
            copies->ia = nullptr;
            return no_memory_for(call, entries, 8);
        }
        fill_pattern(call, zero_based ? 0 : 1);
    }
    call->work_ia = copies->ia != nullptr ? copies->ia : call->ia;
    call->work_ja = copies->ia != nullptr ? copies->ja : call->ja;
    return true;
}

/* The caller's ordering, read or to be written by the analysis; 1-based. */
bool take_ordering(solver_call *call)
{
    const int64_t mode = iparam_at(call->iparam, iparam_perm_mode);
    call->work_perm = call->perm;
    if (!call->analyses || mode == 0) return true;
    if (call->perm == nullptr) return refuse(call, code_perm);
    if (call->control->zero_based == 0 || mode < 0 || call->neqns < 1) return true;
    auto *copy = static_cast<int64_t *>(zeroed(call->neqns, 8));
    if (copy == nullptr) return no_memory_for(call, call->neqns, 8);
    if (mode != 2) {
        for (int64_t i = 0; i < call->neqns; ++i) copy[i] = call->perm[i] + 1;
    }
    call->copies->perm = call->work_perm = copy;
    return true;
}

bool make_value_copy(solver_call *call, int64_t entries)
{
    const int64_t bytes = call->real_bytes * call->element_words;
    service_free_direct(call->copies->a);
    call->copies->a = zeroed(entries, bytes);
    return call->copies->a != nullptr || no_memory_for(call, entries, bytes);
}

/* Values with a zero in every inserted diagonal position. */
bool insert_diagonal_values(solver_call *call)
{
    const bool matched_analysis = call->ido == ido_analyse && iparam_at(call->iparam, iparam_matching) > 0;
    if (call->diagonal_count < 1 || (call->ido <= ido_analyse && !matched_analysis)) return true;
    if (call->a == nullptr) return refuse(call, code_empty_arrays);
    const int64_t n = call->neqns;
    const int64_t *ia = call->work_ia, *list = call->copies->diagonal_list + 1, *const list_end = list + call->diagonal_count;
    if (!make_value_copy(call, ia[n] - 1)) return false;
    const int64_t bytes = call->real_bytes * call->element_words;
    const auto *from = static_cast<const char *>(call->a);
    auto *to = static_cast<char *>(call->copies->a);
    for (int64_t i = 0; i < n; ++i) {
        int64_t length = (ia[i + 1] - ia[i]) * bytes;
        if (list < list_end && *list == i + 1) {
            to += bytes;
            length -= bytes;
            ++list;
        }
        std::memcpy(to, from, static_cast<size_t>(length));
        to += length;
        from += length;
    }
    call->work_a = call->copies->a;
    return true;
}

/* Entries that the working row pointers tell of; below 1 when they make no sense. */
int64_t entry_count(const solver_call *call)
{
    const int64_t end = call->neqns >= 0 ? call->work_ia[call->neqns] : 1;
    return end < 1 ? 0 : end - 1;
}

/* Place of the leading diagonal entry of row i (from 0), or -1. */
int64_t leading_diagonal(const solver_call *call, int64_t i, int64_t nnz)
{
    const int64_t start = call->work_ia[i];
    const bool stored = start >= 1 && start <= nnz && call->work_ia[i + 1] > start;
    return stored && call->work_ja[start - 1] == i + 1 ? start - 1 : -1;
}

/* The diagonal of a Hermitian matrix is real: imaginary parts that are not 0 (a NaN is not) are dropped, in a copy of the values. */
template <typename real_t>
bool make_diagonal_real(solver_call *call)
{
    using value_t = std::complex<real_t>;
    const int64_t n = call->neqns, nnz = entry_count(call);
    const auto *values = static_cast<const value_t *>(call->work_a);
    bool clean = true;
    for (int64_t i = 0; i < n && clean; ++i) {
        const int64_t p = leading_diagonal(call, i, nnz);
        clean = p < 0 || values[p].imag() == real_t(0);
    }
    if (clean) return true;
    if (call->work_a != call->copies->a) {
        if (!make_value_copy(call, nnz)) return false;
        std::memcpy(call->copies->a, call->work_a, static_cast<size_t>(nnz) * sizeof(value_t));
        call->work_a = call->copies->a;
    }
    auto *copy = static_cast<value_t *>(call->copies->a);
    for (int64_t i = 0; i < n; ++i) {
        const int64_t p = leading_diagonal(call, i, nnz);
        if (p >= 0) copy[p] = value_t(copy[p].real(), 0);
    }
    return true;
}

bool check_hermitian_diagonal(solver_call *call)
{
    const bool hermitian = call->matrix_type == 4 || call->matrix_type == -4;
    if (!hermitian || call->ido <= ido_analyse || call->neqns < 1 || call->work_a == nullptr) return true;
    return call->real_bytes == 4 ? make_diagonal_real<float>(call) : make_diagonal_real<double>(call);
}
int64_t callers_entry_count(const solver_call *call)
{
    if (call->ia == nullptr || call->neqns < 0) return 0;
    const int64_t end = one_based(call->ia[call->neqns], call->control->zero_based != 0 ? 0 : 1);
    return end < 1 ? 0 : end - 1;
}
} // namespace

bool prepare_input(solver_call *call)
{
    call->control->zero_based = iparam_at(call->iparam, iparam_zero_based) != 0 ? 1 : 0;
    call->state->scaling_on = call->control->scaling_on;
    call->element_words = element_words_of(call->matrix_type);
    call->nnz = call->stored_nnz;
    if (call->stored_neqns >= 1 && call->neqns != call->stored_neqns) { /* refused by the checks; copies have the old size */
        call->nnz = callers_entry_count(call);
        return true;
    }

    if (!inspect_diagonal(call) || !convert_pattern(call) || !take_ordering(call)) return false;
    if (call->work_ia == nullptr || call->work_ja == nullptr) return refuse(call, code_working_arrays);
    call->work_a = call->a;
    const bool other_field = call->stored_matrix_type != 0 && element_words_of(call->stored_matrix_type) != call->element_words;
    if (!other_field && (!insert_diagonal_values(call) || !check_hermitian_diagonal(call)))
        return false; /* else the checks refuse the type */
    if (call->first_digit < phase_solve || call->stored_nnz < 1) call->nnz = entry_count(call);
    call->ooc->msglvl_raw = call->msglvl;
    return true;
}
