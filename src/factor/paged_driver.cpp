#include "factor/factor_run.h"

#include <algorithm>

/* The driver for factors in files. It reads as little as it can: small subtrees, whose blocks stay in the windows, go to one thread each;
   above them the successive supernodes of a chain of the tree (the panels of a separator) are assembled together, so that a source is
   read once for all of them. All threads work on one chain: each owns some of its supernodes and applies the sources to these.

   status of a supernode: minus the first supernode of a subtree at its root, 0 inside a subtree, and above the subtrees the first
   supernode of its chain. The list of sources of a chain hangs at its first supernode. The numbering need not be a postorder: all that
   counts is that children come before parents. */

namespace
{

constexpr int64_t chain_limit = 64;

template <typename value_t>
struct chain_state {
    const supernodal_structure *s;
    int64_t *status; /* [supernodes] */
    source_lists lists;
    int64_t threads, batch_bytes;
    int64_t first, count; /* supernodes of the chain at work */
    target_block<value_t> member[chain_limit];
    bool open[chain_limit];
};

int64_t block_entries(const supernodal_structure &s, int64_t number, bool two_sides)
{
    const int64_t rows = supernode_rows(s, number), columns = supernode_columns(s, number);
    return (two_sides ? 2 * rows - columns : rows) * columns;
}

/* Cut the tree. limit: entries of a subtree; longest: supernodes of a chain. next: links the supernodes of a subtree, ascending; a
   supernode's word is free once it is done. size and root are scratch of supernodes words. */
void cut_tree(const supernodal_structure &s, bool two_sides, int64_t limit, int64_t longest, int64_t *size, int64_t *root, int64_t *status,
              int64_t *next)
{
    for (int64_t i = 1; i <= s.supernodes; ++i) size[i - 1] = status[i - 1] = 0;
    for (int64_t i = 1; i <= s.supernodes; ++i) {
        size[i - 1] += block_entries(s, i, two_sides);
        if (s.sparent[i - 1] != 0) size[s.sparent[i - 1] - 1] += size[i - 1];
    }
    for (int64_t i = s.supernodes; i >= 1; --i) {
        if (size[i - 1] > limit) continue;
        const int64_t up = s.sparent[i - 1];
        root[i - 1] = up != 0 && size[up - 1] <= limit ? root[up - 1] : i;
        int64_t &first = status[root[i - 1] - 1];
        next[i - 1] = -first;
        first = -i;
    }
    for (int64_t i = 1, length = 0; i <= s.supernodes; ++i) {
        const bool goes_on = length > 0 && length < longest && s.sparent[i - 2] == i;
        length = size[i - 1] <= limit ? 0 : goes_on ? length + 1 : 1;
        if (length > 0) status[i - 1] = goes_on ? status[i - 2] : i;
    }
}

/* Put a source with `remaining` rows left on the list of the chain that owns the first of them. */
template <typename value_t>
void link_to_chain(const chain_state<value_t> *chain, int64_t source, int64_t remaining)
{
    const supernodal_structure &s = *chain->s;
    chain->lists.head[s.xsuper[source - 1] - 1] = remaining;
    if (remaining == 0) return;
    const int64_t row = supernode_row_list(s, source)[supernode_rows(s, source) - remaining];
    const int64_t first = chain->status[s.snode[row - 1] - 1];
    int64_t &head = chain->lists.head[s.xsuper[first - 1] - 1];
    chain->lists.next[source - 1] = head;
    head = source;
}

/* Rows of a source at or behind `row`. */
int64_t rows_from(const supernodal_structure &s, int64_t source, int64_t row)
{
    const int64_t *list = supernode_row_list(s, source), *end = list + supernode_rows(s, source);
    return end - std::lower_bound(list, end, row);
}

/* Apply source to a member, if it has rows there. */
template <typename value_t, factor_kind kind, mirror sym>
void update_member(factor_run<value_t> *run, thread_space<value_t> *space, target_block<value_t> *member, int64_t source)
{
    const supernodal_structure &s = *run->s;
    const int64_t remaining = rows_from(s, source, member->first);
    if (remaining == 0) return;
    const int64_t row = supernode_row_list(s, source)[supernode_rows(s, source) - remaining];
    if (row < member->first + member->columns) apply_update<value_t, kind, sym>(run, space, member, source, remaining);
}

/* The sources of the list, a batch that fits the windows at a time, to all members of this thread. */
template <typename value_t, factor_kind kind, mirror sym>
void apply_list(factor_run<value_t> *run, thread_space<value_t> *space, chain_state<value_t> *chain)
{
    const supernodal_structure &s = *run->s;
    const int64_t *next = chain->lists.next;
    for (int64_t begin = chain->lists.head[chain->member[0].first - 1], end = 0; begin != 0; begin = end) {
        int64_t bytes = 0;
        for (end = begin; end != 0 && (end == begin || bytes < chain->batch_bytes); end = next[end - 1])
            bytes += block_entries(s, end, run->two_sides) * static_cast<int64_t>(sizeof(value_t));
        for (int64_t i = space->id - 1; i < chain->count; i += chain->threads) {
            target_block<value_t> *member = &chain->member[i];
            member->mapped = false; /* the thread's map has served another member */
            for (int64_t source = begin; source != end; source = next[source - 1]) {
                if (failed(run)) return;
                update_member<value_t, kind, sym>(run, space, member, source);
            }
            flush_updates<value_t, kind, sym>(run, space, member);
        }
    }
}

/* Factor the members in order; each is applied to the later ones by their owners. */
template <typename value_t, factor_kind kind, mirror sym>
void factor_chain(factor_run<value_t> *run, thread_space<value_t> *space, chain_state<value_t> *chain)
{
    for (int64_t k = 0; k < chain->count; ++k) {
        if (k % chain->threads == space->id - 1 && !failed(run)) factor_supernode<value_t, kind, sym>(run, space, &chain->member[k]);
#pragma omp barrier
        for (int64_t i = space->id - 1; i < chain->count && !failed(run); i += chain->threads) {
            if (i <= k) continue;
            chain->member[i].mapped = false;
            update_member<value_t, kind, sym>(run, space, &chain->member[i], chain->first + k);
            flush_updates<value_t, kind, sym>(run, space, &chain->member[i]);
        }
    }
}

template <typename value_t, factor_kind kind, mirror sym>
void process_chain(factor_run<value_t> *run, thread_space<value_t> *space, chain_state<value_t> *chain)
{
    for (int64_t i = space->id - 1; i < chain->count; i += chain->threads) {
        target_block<value_t> *member = &chain->member[i];
        chain->open[i] = !failed(run) && open_target(run, chain->first + i, block_use::create, member);
        if (chain->open[i]) assemble_supernode(run, member);
    }
#pragma omp barrier
    if (!failed(run)) apply_list<value_t, kind, sym>(run, space, chain);
#pragma omp barrier
    factor_chain<value_t, kind, sym>(run, space, chain);
#pragma omp barrier
    for (int64_t i = space->id - 1; i < chain->count; i += chain->threads) {
        const target_block<value_t> &member = chain->member[i];
        if (chain->open[i]) close_target(run, &member, block_use::create);
        if (!failed(run)) report_block(run, space, member.rows * member.columns, false);
    }
}

/* Hand the sources of the chain and its members on to the chains above. */
template <typename value_t>
void pass_on(chain_state<value_t> *chain)
{
    const supernodal_structure &s = *chain->s;
    const int64_t past = s.xsuper[chain->first + chain->count - 1];
    int64_t source = chain->lists.head[s.xsuper[chain->first - 1] - 1];
    while (source != 0) {
        const int64_t following = chain->lists.next[source - 1];
        link_to_chain(chain, source, rows_from(s, source, past));
        source = following;
    }
    for (int64_t i = 0; i < chain->count; ++i) link_to_chain(chain, chain->first + i, rows_from(s, chain->first + i, past));
}

/* One subtree, with the private lists of its supernodes; what is left of their rows stays in head. */
template <typename value_t, factor_kind kind, mirror sym>
void factor_subtree(factor_run<value_t> *run, thread_space<value_t> *space, const source_lists &lists, int64_t first, int64_t last)
{
    const supernodal_structure &s = *run->s;
    for (int64_t number = first, following = 0; number != 0 && !failed(run); number = following) {
        following = lists.next[number - 1];
        process_with_lists<value_t, kind, sym>(run, space, lists, number, last);
        report_block(run, space, supernode_rows(s, number) * supernode_columns(s, number), false);
    }
}

} // namespace

template <typename value_t, factor_kind kind, mirror sym>
void paged_region(factor_run<value_t> *run, void *work)
{
    const supernodal_structure &s = *run->s;
    const block_pager *pager = run->in->store->pager;
    const int64_t supernodes = s.supernodes, team = run->in->nproc;
    const auto entry = static_cast<int64_t>(sizeof(value_t));
    chain_state<value_t> chain = {};
    chain.s = &s;
    chain.status = run->in->lists->status;
    chain.lists = {run->in->thread_rows + supernodes, run->in->thread_rows};
    chain.threads = team;
    chain.batch_bytes = pager->window_bytes / 4;
    const int64_t total = s.nnz_l + (run->two_sides ? s.nnz_u : 0);
    const int64_t limit = std::min(pager->window_bytes / (2 * team) / entry, total / (8 * team));
    thread_space<value_t> scratch;
    bind_thread_space(run, 1, work, &scratch);
    cut_tree(s, run->two_sides, limit, std::min(chain_limit, pager->target_limit), scratch.relative, scratch.row_position, chain.status,
             chain.lists.next);
    for (int64_t c = 0; c < s.neqns; ++c) chain.lists.head[c] = 0;
    int64_t threads = 0;
#pragma omp parallel num_threads(static_cast <int>(team))
    {
        thread_space<value_t> space;
        int64_t id = 0;
#pragma omp critical(thread_id_lock)
        id = ++threads;
        bind_thread_space(run, id, work, &space);
#pragma omp for schedule(dynamic, 1)
        for (int64_t root = 1; root <= supernodes; ++root)
            if (chain.status[root - 1] < 0 && !failed(run))
                factor_subtree<value_t, kind, sym>(run, &space, chain.lists, -chain.status[root - 1], root);
#pragma omp single
        for (int64_t i = 1; i <= supernodes; ++i)
            if (chain.status[i - 1] <= 0 && !failed(run)) link_to_chain(&chain, i, chain.lists.head[s.xsuper[i - 1] - 1]);
        for (int64_t first = 1; first <= supernodes;) {
            int64_t past = first + 1;
            if (chain.status[first - 1] > 0) {
                while (past <= supernodes && chain.status[past - 1] == first) ++past;
#pragma omp single
                {
                    chain.first = first;
                    chain.count = past - first;
                }
                process_chain<value_t, kind, sym>(run, &space, &chain);
#pragma omp barrier
#pragma omp single
                if (!failed(run)) pass_on(&chain);
            }
            first = past;
        }
        merge_counts(run, &space);
    }
    if (!failed(run)) report_percent(run, 100);
}

#define INSTANTIATE(V, kind, sym) template void paged_region<V, kind, sym>(factor_run<V> *, void *);
FOR_EACH_MEMBER(INSTANTIATE)
