#include "factor/narrow_update.h"
#include "factor/update_program.h"

#include <complex>

/* One thread, in core, along an update program. */

namespace
{

template <typename value_t, factor_kind kind>
void bind_target(const factor_run<value_t> &run, int64_t number, target_block<value_t> *target)
{
    const supernodal_structure &s = *run.s;
    const factor_store<value_t> &store = *run.in->store;
    target->number = number;
    target->first = s.xsuper[number - 1];
    target->columns = supernode_columns(s, number);
    target->rows = supernode_rows(s, number);
    target->row_list = supernode_row_list(s, number);
    target->lower = store.lnz + (s.xlnz[target->first - 1] - 1);
    const bool two_sides = kind == factor_kind::lu && target->rows > target->columns;
    target->upper = two_sides ? store.unz + (s.xunz[target->first - 1] - 1) : nullptr;
    target->mapped = target->front = false;
    target->spanned = 0;
    target->span = nullptr;
}

/* One triangle. */
template <typename value_t, factor_kind kind, mirror sym>
void apply_word(const factor_store<value_t> &store, const target_block<value_t> &target, const int32_t *word)
{
    narrow_source<value_t> from;
    from.rows = word[program_rows];
    from.columns = word[program_columns];
    from.width = word[program_width];
    from.ld = word[program_ld];
    from.lower = store.lnz + word[program_lower];
    from.block = from.lower - (from.ld - from.rows);
    const int32_t *const place = word + program_places;
    subtract_source<kind, sym>(from, target, [=](int64_t i) { return static_cast<int64_t>(place[i]); });
}

/* Listed rows of a panel's columns, times a factor for each of the columns. */
template <int64_t width, typename value_t>
inline void subtract_listed(const int32_t *entry, const int32_t *end, const value_t *panel, int64_t ld, const value_t *factor,
                            value_t *column)
{
    bool zero = true;
    for (int64_t c = 0; c < width; ++c) zero = zero && factor[c] == value_t(0);
    if (zero) return;
    for (; entry < end; ++entry) {
        const auto packed = static_cast<uint32_t>(*entry);
        const value_t *const w = panel + (packed & 255);
        value_t &to = column[packed >> 8];
        value_t rest = to - product(w[0], factor[0]);
        for (int64_t c = 1; c < width; ++c) rest -= product(w[c * ld], factor[c]);
        to = rest;
    }
}

/* Columns of one side of the target: for each entry of `across`, the products with `along`. Their columns are ld_target long. */
template <int64_t width, typename value_t>
inline void subtract_side(const int32_t *across, const int32_t *across_end, const value_t *factors, int64_t ld_factors,
                          const int32_t *along, const int32_t *along_end, const value_t *panel, int64_t ld, value_t *target,
                          int64_t ld_target)
{
    for (; across < across_end; ++across) {
        const auto packed = static_cast<uint32_t>(*across);
        value_t factor[width];
        for (int64_t c = 0; c < width; ++c) factor[c] = factors[c * ld_factors + (packed & 255)];
        subtract_listed<width>(along, along_end, panel, ld, factor, target + static_cast<int64_t>(packed >> 8) * ld_target);
    }
}

template <int64_t width, typename value_t>
inline void subtract_both(const target_block<value_t> &target, const int32_t *word, const value_t *lower, const value_t *upper)
{
    const listed_counts count = unpack_counts(word[program_counts]);
    const int32_t *const row = word + program_places, *const column = row + count.rows, *const end = column + count.columns;
    const int32_t *const beyond = column + count.own_columns;
    const int64_t ld = word[program_ld], ldu = ld - word[program_width];
    subtract_side<width>(column, beyond, upper, ldu, row, column, lower, ld, target.lower, target.rows);
    if (beyond == end) return;
    subtract_side<width>(row, row + count.own_rows, lower, ld, beyond, end, upper, ldu, target.upper, target.rows - target.columns);
}

/* LU */
template <typename value_t>
void apply_listed(const factor_store<value_t> &store, const target_block<value_t> &target, const int32_t *word)
{
    const value_t *lower = store.lnz + word[program_lower], *upper = store.unz + word[program_upper];
    const int64_t width = word[program_width], ld = word[program_ld], ldu = ld - width;
    if (width == 1) return subtract_both<1>(target, word, lower, upper); /* most */
    int64_t c = 0;
    for (; c + 4 <= width; c += 4) subtract_both<4>(target, word, lower + c * ld, upper + c * ldu);
    for (; c + 2 <= width; c += 2) subtract_both<2>(target, word, lower + c * ld, upper + c * ldu);
    if (c < width) subtract_both<1>(target, word, lower + c * ld, upper + c * ldu);
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void program_driver(factor_run<value_t> *run, void *work)
{
    const supernodal_structure &s = *run->s;
    const factor_store<value_t> &store = *run->in->store;
    const bool each_block = run->in->single_thread != 1 && run->in->lists->two_level == 0; /* tell the hook of each, as that region does */
    thread_space<value_t> space;
    bind_thread_space(run, 1, work, &space);
    assemble_all(run);
    const int32_t *word = run->in->program + 1;
    for (int64_t number = 1; number <= s.supernodes && !failed(run); ++number) {
        target_block<value_t> target;
        bind_target<value_t, kind>(*run, number, &target);
        const int32_t *const end = word + 1 + *word;
        for (++word; word < end;) {
            if (word[program_width] == 0) {
                apply_update<value_t, kind, sym>(run, &space, &target, word[program_source], word[program_rows]);
                word += program_large_words;
                continue;
            }
            if constexpr (kind == factor_kind::lu)
                apply_listed(store, target, word);
            else
                apply_word<value_t, kind, sym>(store, target, word);
            word += program_places + word[program_rows];
        }
        if (space.pending_count > 0) flush_updates<value_t, kind, sym>(run, &space, &target);
        if (failed(run)) return;
        factor_supernode<value_t, kind, sym>(run, &space, &target);
        report_block(run, &space, target.rows * target.columns, each_block);
    }
    merge_counts(run, &space);
    if (!failed(run)) report_percent(run, 100);
}

#define INSTANTIATE(V, kind, sym) template void program_driver<V, kind, sym>(factor_run<V> *, void *);
FOR_EACH_MEMBER(INSTANTIATE)
