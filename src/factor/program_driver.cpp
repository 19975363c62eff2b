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

/* The small and the large updates of the next target of a triangle; returns the word behind them. */
template <typename value_t, factor_kind kind, mirror sym>
const int32_t *update_triangle(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target, const int32_t *word)
{
    const int32_t *const end = word + 1 + *word;
    for (++word; word < end;) {
        if (word[program_width] == 0) {
            apply_update<value_t, kind, sym>(run, space, target, word[program_source], word[program_rows]);
            word += program_large_words;
            continue;
        }
        apply_word<value_t, kind, sym>(*run->in->store, *target, word);
        word += program_places + word[program_rows];
    }
    return end;
}

/* to -= from * factor. `changed` holds the first two. */
template <typename value_t>
inline const int32_t *subtract_products(int64_t count, const int32_t *word, value_t *changed, const value_t *other)
{
    for (const int32_t *const end = word + count * product_words; word < end; word += product_words)
        changed[word[0]] -= product(changed[word[1]], other[word[2]]);
    return word;
}

/* The same of LU, whose products are listed. */
template <typename value_t, factor_kind kind, mirror sym>
const int32_t *update_by_products(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *target,
                                  const int32_t *word)
{
    const factor_store<value_t> &store = *run->in->store;
    const int64_t lower = word[products_lower], upper = word[products_upper], large = word[products_large];
    word += product_target_words;
    word = subtract_products(lower, word, store.lnz, store.unz);
    word = subtract_products(upper, word, store.unz, store.lnz);
    for (const int32_t *const end = word + large * large_update_words; word < end; word += large_update_words)
        apply_update<value_t, kind, sym>(run, space, target, word[1], word[0]);
    return word;
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void program_driver(factor_run<value_t> *run, void *work)
{
    const supernodal_structure &s = *run->s;
    const bool each_block = run->in->single_thread != 1 && run->in->lists->two_level == 0; /* tell the hook of each, as that region does */
    thread_space<value_t> space;
    bind_thread_space(run, 1, work, &space);
    assemble_all(run);
    const int32_t *word = run->in->program + 1;
    for (int64_t number = 1; number <= s.supernodes && !failed(run); ++number) {
        target_block<value_t> target;
        bind_target<value_t, kind>(*run, number, &target);
        if constexpr (kind == factor_kind::lu)
            word = update_by_products<value_t, kind, sym>(run, &space, &target, word);
        else
            word = update_triangle<value_t, kind, sym>(run, &space, &target, word);
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
