#include "factor/factor_run.h"

#include <complex>
#include <cstring>

/* Narrow supernodes that follow each other on a path of the tree. Whatever updates one of them mostly updates the next ones as well, and
   for each it would be read again for the sake of a few columns. So the sources from outside the chain are applied once, to a front in the
   thread's buffer with the columns of all members and the rows of the last one, and the front is added to the members. */

namespace
{

/* Columns of a front, and of a member; entries below which a front is not worth making. Found on saddle point, circuit and grid matrices.
 */
constexpr int64_t chain_columns = 96, member_columns = 48, least_front = 4000;
constexpr int64_t widest_source = 192; /* as the analysis makes them */

/* Entries of the front of both sides. */
template <typename value_t>
int64_t front_entries(const factor_run<value_t> &run, int64_t rows, int64_t columns)
{
    return (run.two_sides ? 2 * rows - columns : rows) * columns;
}

/* Rows of the front of a chain that ends with `end`. */
int64_t front_rows(const supernodal_structure &s, int64_t end, int64_t columns)
{
    return columns + supernode_rows(s, end) - supernode_columns(s, end);
}

/* The last supernode that a front from `number` on may hold, by the structure alone; number itself when no front is large enough. Of a path
   that ends without one, the supernodes behind `number` need not be looked at: theirs would be smaller. */
template <typename value_t>
int64_t longest_chain(const factor_run<value_t> &run, thread_space<value_t> *space, int64_t number, int64_t last)
{
    const supernodal_structure &s = *run.s;
    if (number >= space->chainless_from && number <= space->chainless_to) return number;
    int64_t columns = 0, longest = number, end = number;
    for (; end <= last; ++end) {
        const int64_t width = supernode_columns(s, end);
        columns += width;
        if (width > member_columns || columns > chain_columns) return longest;
        const int64_t rows = front_rows(s, end, columns);
        /* room for the sources: scaled rows of the widest one, and a few columns side by side */
        const int64_t room = space->buffer_entries - front_entries(run, rows, columns);
        if (room < columns * widest_source || room < 16 * rows) return longest;
        if (rows * columns > least_front) longest = end;
        if (s.sparent[end - 1] != end + 1) break;
    }
    if (longest == number) {
        space->chainless_from = number;
        space->chainless_to = end < last ? end : last;
    }
    return longest;
}

/* The last member of the chain that begins with `number`; number itself when a front would not pay. */
template <typename value_t>
int64_t chain_end(const factor_run<value_t> &run, thread_space<value_t> *space, const source_lists &lists, int64_t number, int64_t last)
{
    const supernodal_structure &s = *run.s;
    if (run.most_pending == 1) return number;
    const int64_t longest = longest_chain(run, space, number, last); /* most supernodes end here: the lists are not walked for them */
    int64_t columns = 0, entries = 0, best = number, outside = 0;    /* outside: entries of the sources that wait */
    for (int64_t end = number; longest > number && end <= longest; ++end) {
        const int64_t width = supernode_columns(s, end);
        columns += width;
        entries += width * supernode_rows(s, end);
        const int64_t front = front_rows(s, end, columns) * columns;
        for (int64_t source = lists.head[s.xsuper[end - 1] - 1]; source != 0; source = lists.next[source - 1])
            if (source < number) outside += supernode_columns(s, source) * lists.head[s.xsuper[source - 1] - 1];
        if (2 * front <= 3 * entries + columns * columns && outside > front && front > least_front) best = end;
    }
    return best;
}

/* Apply what waits for the members and comes from outside, and hang it on the lists behind the chain. */
template <typename value_t, factor_kind kind, mirror sym>
void fill_front(factor_run<value_t> *run, thread_space<value_t> *space, const source_lists &lists, target_block<value_t> *front,
                int64_t end, int64_t last)
{
    const supernodal_structure &s = *run->s;
    const int64_t end_column = s.xsuper[end];
    for (int64_t number = front->number; number <= end; ++number) {
        int64_t &head = lists.head[s.xsuper[number - 1] - 1];
        int64_t source = head;
        head = 0;
        while (source != 0 && !failed(run)) {
            const int64_t following = lists.next[source - 1];
            apply_update<value_t, kind, sym>(run, space, front, source, lists.head[s.xsuper[source - 1] - 1]);
            hang_on_next(s, lists, source, end_column, last);
            source = following;
        }
    }
    flush_updates<value_t, kind, sym>(run, space, front);
}

/* Assemble a member and add its part of the front. The thread's map holds the front. */
template <typename value_t>
void take_from_front(const factor_run<value_t> *run, const thread_space<value_t> *space, const target_block<value_t> &front,
                     const target_block<value_t> &member)
{
    assemble_supernode(run, &member);
    const int64_t below = member.rows - member.columns, front_below = front.rows - front.columns;
    for (int64_t c = 0; c < member.columns; ++c) {
        const int64_t at = member.first - front.first + c;
        const value_t *from = front.lower + at * front.rows;
        value_t *to = member.lower + c * member.rows;
        for (int64_t i = run->two_sides ? 0 : c; i < member.rows; ++i) to[i] += from[space->relative[member.row_list[i] - 1]];
        if (member.upper == nullptr) continue;
        value_t *right = member.upper + c * below;
        /* right of the member the front's own columns stand in its square: row `at` of it */
        for (int64_t i = 0; i < below; ++i) {
            const int64_t p = space->relative[member.row_list[member.columns + i] - 1];
            right[i] += p < front.columns ? front.lower[p * front.rows + at] : front.upper[at * front_below + p - front.columns];
        }
    }
}

/* Wide supernodes that were one before they were cut are updated from outside in place, together. */
template <typename value_t, factor_kind kind, mirror sym>
void process_span(factor_run<value_t> *run, thread_space<value_t> *space, const source_lists &lists, int64_t number, int64_t count,
                  int64_t last)
{
    span_block<value_t> block[span_limit];
    target_block<value_t> target;
    if (!open_span(run, number, count, block, &target)) return;
    fill_front<value_t, kind, sym>(run, space, lists, &target, number + count - 1, last);
    for (int64_t i = 0; i < count && !failed(run); ++i) process_with_lists<value_t, kind, sym>(run, space, lists, number + i, last, true);
}

/* Supernode `number` and those behind it that are better updated together with it; returns the last one of them. */
template <typename value_t, factor_kind kind, mirror sym>
int64_t process_front(factor_run<value_t> *run, thread_space<value_t> *space, const source_lists &lists, int64_t number, int64_t last)
{
    const supernodal_structure &s = *run->s;
    const int64_t spanned = span_count_from(run, *space, number, last);
    if (spanned > 1) {
        process_span<value_t, kind, sym>(run, space, lists, number, spanned, last);
        return number + spanned - 1;
    }
    const int64_t end = chain_end(*run, space, lists, number, last);
    if (end == number) {
        process_with_lists<value_t, kind, sym>(run, space, lists, number, last);
        return end;
    }
    const int64_t first = s.xsuper[number - 1], columns = s.xsuper[end] - first, rows = front_rows(s, end, columns);
    const int64_t taken = front_entries(*run, rows, columns);
    target_block<value_t> front = {};
    front.number = number;
    front.first = first;
    front.columns = columns;
    front.rows = rows;
    front.lower = space->buffer;
    front.upper = run->two_sides && rows > columns ? space->buffer + rows * columns : nullptr;
    front.front = front.mapped = true;
    std::memset(static_cast<void *>(space->buffer), 0, static_cast<size_t>(taken) * sizeof(value_t));
    for (int64_t i = 0; i < columns; ++i) space->relative[first - 1 + i] = i;
    const int64_t *tail = supernode_row_list(s, end) + supernode_columns(s, end);
    for (int64_t i = columns; i < rows; ++i) space->relative[tail[i - columns] - 1] = i;

    space->buffer += taken;
    space->buffer_entries -= taken;
    fill_front<value_t, kind, sym>(run, space, lists, &front, end, last);
    space->buffer -= taken;
    space->buffer_entries += taken;
    target_block<value_t> member;
    for (int64_t i = number; i <= end && !failed(run); ++i)
        if (open_target(run, i, block_use::create, &member)) take_from_front(run, space, front, member);
    for (int64_t i = number; i <= end && !failed(run); ++i) process_with_lists<value_t, kind, sym>(run, space, lists, i, last, true);
    return end;
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void process_range(factor_run<value_t> *run, thread_space<value_t> *space, int64_t first, int64_t last, int64_t *progress, bool always)
{
    const supernodal_structure &s = *run->s;
    const source_lists lists = {run->in->thread_rows + s.supernodes, run->in->thread_rows};
    for (int64_t c = s.xsuper[first - 1]; c < s.xsuper[last]; ++c) lists.head[c - 1] = 0;
    for (int64_t number = first, end = 0; number <= last && !failed(run); number = end + 1) {
        end = process_front<value_t, kind, sym>(run, space, lists, number, last);
        if (failed(run)) return;
        if (progress != nullptr) std::atomic_ref<int64_t>(*progress).store(end, std::memory_order_release);
        for (; number <= end; ++number) report_block(run, space, supernode_rows(s, number) * supernode_columns(s, number), always);
    }
}

#define INSTANTIATE(V, kind, sym)                                                                                                          \
    template void process_range<V, kind, sym>(factor_run<V> *, thread_space<V> *, int64_t, int64_t, int64_t *, bool);
FOR_EACH_MEMBER(INSTANTIATE)
