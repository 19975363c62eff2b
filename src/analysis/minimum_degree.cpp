/* Elimination, degree update and numbering of the minimum degree method; minimum_degree.h tells the data. */
#include "analysis/minimum_degree.h"

namespace
{
/* Walk along the vertices of an element. */
template <typename index_t>
struct member_walk {
    const index_t *xadj, *adj;
    index_t at, last;
};

template <typename index_t>
member_walk<index_t> open_walk(const degree_state<index_t> *s, index_t element)
{
    return {s->xadj, s->adj, s->xadj[element - 1], s->xadj[element] - 1};
}

/* The next vertex, 0 at the end. */
template <typename index_t>
index_t next_member(member_walk<index_t> *walk)
{
    while (walk->at <= walk->last) {
        const index_t v = walk->adj[walk->at - 1];
        if (v >= 0) {
            ++walk->at;
            return v;
        }
        walk->at = walk->xadj[-v - 1];
        walk->last = walk->xadj[-v] - 1;
    }
    return 0;
}

/* After this call need tags can be taken without a reset in between. */
template <typename index_t>
void reserve_tags(degree_state<index_t> *s, index_t need)
{
    if (s->tag < s->tag_limit - need) return;
    for (index_t v = 0; v < s->n; ++v) {
        if (s->marker[v] < s->tag_limit) s->marker[v] = 0;
    }
    s->tag = 1;
}

template <typename index_t>
void enter_degree_list(degree_state<index_t> *s, index_t v, index_t degree)
{
    const index_t d = degree < s->head_size ? degree : s->head_size - 1;
    const index_t first = s->head[d];
    s->next[v - 1] = first;
    s->prev[v - 1] = -(d + 1);
    s->head[d] = v;
    if (first != 0) s->prev[first - 1] = v;
}

template <typename index_t>
void leave_degree_list(degree_state<index_t> *s, index_t v)
{
    const index_t before = s->prev[v - 1], after = s->next[v - 1];
    if (before == 0) return;
    if (before > 0)
        s->next[before - 1] = after;
    else
        s->head[-before - 1] = after;
    if (after != 0) s->prev[after - 1] = before;
    s->prev[v - 1] = 0;
    s->next[v - 1] = 0;
}

template <typename index_t>
bool is_held(const degree_state<index_t> *s, index_t v)
{
    return s->held != nullptr && s->held[v - 1] != 0;
}

/* The degree of v is out of date. */
template <typename index_t>
bool is_pending(const degree_state<index_t> *s, index_t v)
{
    return s->prev[v - 1] == 0 && s->next[v - 1] > 0;
}

template <typename index_t>
void merge_vertex(degree_state<index_t> *s, index_t v, index_t into)
{
    s->weight[into - 1] += s->weight[v - 1];
    s->weight[v - 1] = 0;
    s->marker[v - 1] = s->tag_limit;
    s->place[v - 1] = -into;
    s->next[v - 1] = 0;
    s->prev[v - 1] = 0;
}

/* Turn the list of pivot into that of an element: its neighbours, and the members of the elements next to it, which it absorbs. */
template <typename index_t>
void form_element(degree_state<index_t> *s, index_t pivot)
{
    index_t *adj = s->adj, *marker = s->marker;
    const index_t tag = s->tag;
    index_t write = s->xadj[pivot - 1], last = s->xadj[pivot] - 1, elements = 0;
    marker[pivot - 1] = tag;
    for (index_t i = write; i <= last && adj[i - 1] != 0; ++i) {
        const index_t v = adj[i - 1];
        if (marker[v - 1] >= tag) continue;
        marker[v - 1] = tag;
        if (s->place[v - 1] > 0) {
            s->chain[v - 1] = elements;
            elements = v;
        } else {
            adj[write++ - 1] = v;
        }
    }
    for (index_t e = elements; e != 0; e = s->chain[e - 1]) {
        adj[last - 1] = -e; /* where the list goes on; nobody reads this segment any more */
        s->next[e - 1] = pivot;
        member_walk<index_t> walk = open_walk(s, e);
        for (index_t v = next_member(&walk); v != 0; v = next_member(&walk)) {
            if (marker[v - 1] >= tag || s->place[v - 1] != 0) continue;
            marker[v - 1] = tag;
            while (write >= last) {
                const index_t segment = -adj[last - 1];
                write = s->xadj[segment - 1];
                last = s->xadj[segment] - 1;
            }
            adj[write++ - 1] = v; /* behind the walk: the pivot or a marked vertex was passed over in each segment */
        }
    }
    if (write <= last) adj[write - 1] = 0;
}

/* Eliminate pivot: its members lose their edges among each other and gain the element; those that are left with nothing else have the
   same column structure from here on and are merged into the pivot. */
template <typename index_t>
void eliminate_pivot(degree_state<index_t> *s, index_t pivot)
{
    reserve_tags(s, index_t{2});
    ++s->tag;
    s->place[pivot - 1] = ++s->step;
    s->next[pivot - 1] = 0;
    form_element(s, pivot);
    index_t front = s->weight[pivot - 1];
    member_walk<index_t> walk = open_walk(s, pivot);
    for (index_t v = next_member(&walk); v != 0; v = next_member(&walk)) {
        leave_degree_list(s, v);
        front += s->weight[v - 1];
        const index_t start = s->xadj[v - 1], last = s->xadj[v] - 1;
        index_t write = start;
        for (index_t i = start; i <= last && s->adj[i - 1] != 0; ++i) {
            const index_t u = s->adj[i - 1];
            if (s->marker[u - 1] < s->tag) s->adj[write++ - 1] = u;
        }
        if (write == start && !is_held(s, v)) {
            merge_vertex(s, v, pivot);
            continue;
        }
        s->adj[write++ - 1] = pivot;
        if (write <= last) s->adj[write - 1] = 0;
        s->next[v - 1] = is_held(s, v) ? 0 : write - start;
    }
    s->prev[pivot - 1] = front;
    s->remaining -= s->weight[pivot - 1];
}

/* Degree of v, which has exactly one quotient neighbour beside the new element; all members of the element carry element_tag. A member
   that lies in the other element too, and in nothing else, has the same neighbours: it is merged into v. One that lies in more than these
   two cannot have a smaller degree than v, and waits until v is eliminated. */
template <typename index_t>
index_t degree_beside_one(degree_state<index_t> *s, index_t v, index_t element, index_t element_tag, index_t element_weight)
{
    const index_t *list = s->adj + (s->xadj[v - 1] - 1);
    const index_t other = list[0] == element ? list[1] : list[0];
    if (s->place[other - 1] <= 0) return s->marker[other - 1] == element_tag ? element_weight : element_weight + s->weight[other - 1];
    index_t degree = element_weight;
    member_walk<index_t> walk = open_walk(s, other);
    for (index_t u = next_member(&walk); u != 0; u = next_member(&walk)) {
        if (u == v || s->weight[u - 1] == 0) continue;
        if (s->marker[u - 1] != element_tag)
            degree += s->weight[u - 1];
        else if (is_pending(s, u) && s->next[u - 1] == 2)
            merge_vertex(s, u, v);
        else if (is_pending(s, u))
            s->next[u - 1] = 0;
    }
    return degree;
}

/* Degree of v in general: the union of all that its quotient neighbours touch. */
template <typename index_t>
index_t degree_beside_many(degree_state<index_t> *s, index_t v, index_t element, index_t element_tag, index_t element_weight)
{
    const index_t tag = ++s->tag;
    index_t degree = element_weight;
    for (index_t i = s->xadj[v - 1]; i < s->xadj[v] && s->adj[i - 1] != 0; ++i) {
        const index_t other = s->adj[i - 1];
        if (other == element) continue;
        if (s->place[other - 1] <= 0) {
            if (s->marker[other - 1] != element_tag && s->marker[other - 1] != tag) degree += s->weight[other - 1];
            if (s->marker[other - 1] < tag && s->marker[other - 1] != element_tag) s->marker[other - 1] = tag;
            continue;
        }
        member_walk<index_t> walk = open_walk(s, other);
        for (index_t u = next_member(&walk); u != 0; u = next_member(&walk)) {
            const index_t mark = s->marker[u - 1];
            if (mark >= tag || mark == element_tag) continue;
            s->marker[u - 1] = tag;
            degree += s->weight[u - 1];
        }
    }
    return degree;
}

/* Put the pending members of a new element back on the degree lists, those with one other neighbour first since they can settle others. */
template <typename index_t>
void update_members(degree_state<index_t> *s, index_t element, index_t *least_degree)
{
    reserve_tags(s, s->n + 2);
    const index_t element_tag = ++s->tag;
    index_t element_weight = 0, beside_one = 0, beside_many = 0;
    member_walk<index_t> walk = open_walk(s, element);
    for (index_t v = next_member(&walk); v != 0; v = next_member(&walk)) {
        if (s->weight[v - 1] == 0) continue;
        element_weight += s->weight[v - 1];
        s->marker[v - 1] = element_tag;
        if (!is_pending(s, v)) continue;
        index_t *list = s->next[v - 1] == 2 ? &beside_one : &beside_many;
        s->chain[v - 1] = *list;
        *list = v;
    }
    for (int pass = 0; pass < 2; ++pass) {
        for (index_t v = pass == 0 ? beside_one : beside_many; v != 0; v = s->chain[v - 1]) {
            if (!is_pending(s, v)) continue;
            index_t degree = pass == 0 ? degree_beside_one(s, v, element, element_tag, element_weight)
                                       : degree_beside_many(s, v, element, element_tag, element_weight);
            degree -= s->weight[v - 1];
            enter_degree_list(s, v, degree);
            if (degree < *least_degree) *least_degree = degree;
        }
    }
}
} // namespace

template <typename index_t>
void start_degrees(degree_state<index_t> *s, const index_t *weight_in)
{
    s->tag = 0;
    s->step = 0;
    s->remaining = 0;
    for (index_t d = 0; d < s->head_size; ++d) s->head[d] = 0;
    for (index_t v = 0; v < s->n; ++v) {
        s->weight[v] = weight_in != nullptr ? weight_in[v] : 1;
        s->marker[v] = 0;
        s->place[v] = 0;
        s->next[v] = 0;
        s->prev[v] = 0;
    }
    for (index_t v = 1; v <= s->n; ++v) {
        if (is_held(s, v)) continue;
        index_t degree = 0;
        for (index_t i = s->xadj[v - 1]; i < s->xadj[v]; ++i) degree += s->weight[s->adj[i - 1] - 1];
        enter_degree_list(s, v, degree);
        s->remaining += s->weight[v - 1];
    }
}

template <typename index_t>
void eliminate_all(degree_state<index_t> *s, index_t delta)
{
    index_t least = 0;
    while (s->remaining > 0) {
        while (s->head[least] == 0) ++least; /* every vertex that is neither eliminated nor held is on a list, or waits for one that is */
        const index_t limit = delta < s->head_size - 1 - least ? least + delta : s->head_size - 1;
        index_t new_elements = 0;
        for (index_t d = least; d <= limit && s->remaining > 0; ++d) {
            for (index_t pivot = s->head[d]; pivot != 0; pivot = s->head[d]) {
                leave_degree_list(s, pivot);
                eliminate_pivot(s, pivot);
                s->chain[pivot - 1] = new_elements;
                new_elements = pivot;
            }
        }
        least = limit; /* all lists up to here are empty now */
        for (index_t e = new_elements; e != 0 && s->remaining > 0; e = s->chain[e - 1]) update_members(s, e, &least);
    }
}

template <typename index_t>
void release_held(degree_state<index_t> *s, const index_t *held)
{
    s->held = nullptr;
    for (index_t v = 1; v <= s->n; ++v) {
        if (held[v - 1] == 0) continue;
        reserve_tags(s, index_t{4});
        const index_t own_tag = ++s->tag;
        s->marker[v - 1] = own_tag;
        enter_degree_list(s, v, degree_beside_many(s, v, index_t{0}, own_tag, index_t{0}));
        s->remaining += s->weight[v - 1];
    }
}

namespace
{
/* First position of each element's vertices, along a post-order of the assembly tree; a tree with an earlier root comes first.
   in    by_step[steps]  the elements in the order of their elimination; by element: parent, count (its vertices)
   inout start           by element: length of the front, then the first position
   work  first_child, sibling, by element */
template <typename index_t>
void number_elements(index_t steps, const index_t *by_step, const index_t *parent, const index_t *count, index_t *start,
                     index_t *first_child, index_t *sibling)
{
    for (index_t k = 0; k < steps; ++k) {
        first_child[by_step[k] - 1] = 0;
        sibling[by_step[k] - 1] = -1;
    }
    for (index_t k = 0; k < steps; ++k) { /* the child with the longest front goes in first, so it comes out last */
        const index_t e = by_step[k], p = parent[e - 1];
        if (p != 0 && (first_child[p - 1] == 0 || start[e - 1] >= start[first_child[p - 1] - 1])) first_child[p - 1] = e;
    }
    for (index_t k = 0; k < steps; ++k) {
        const index_t longest = first_child[by_step[k] - 1];
        if (longest != 0) sibling[longest - 1] = 0;
    }
    for (index_t k = steps; k > 0; --k) {
        const index_t e = by_step[k - 1], p = parent[e - 1];
        if (p == 0 || sibling[e - 1] != -1) continue;
        sibling[e - 1] = first_child[p - 1];
        first_child[p - 1] = e;
    }
    index_t position = 1;
    for (index_t k = 0; k < steps; ++k) {
        if (parent[by_step[k] - 1] != 0) continue;
        index_t e = by_step[k];
        bool down = true;
        while (true) {
            while (down && first_child[e - 1] != 0) e = first_child[e - 1];
            start[e - 1] = position;
            position += count[e - 1];
            if (parent[e - 1] == 0) break;
            down = sibling[e - 1] != 0;
            e = down ? sibling[e - 1] : parent[e - 1];
        }
    }
}
} // namespace

template <typename index_t>
index_t number_vertices(degree_state<index_t> *s, index_t *invp)
{
    index_t *by_step = s->head, *count = s->weight, *start = s->prev, *place = s->place, numbered = 0;
    for (index_t v = 0; v < s->n; ++v) count[v] = 0;
    for (index_t v = 1; v <= s->n; ++v) { /* shorten the chains of merged vertices until each points at its element */
        if (place[v - 1] == 0) continue;
        index_t element = v;
        while (place[element - 1] < 0) element = -place[element - 1];
        for (index_t u = v; place[u - 1] < 0;) {
            const index_t up = -place[u - 1];
            place[u - 1] = -element;
            u = up;
        }
        ++numbered;
        ++count[element - 1];
        if (element == v) by_step[place[v - 1] - 1] = v;
    }
    number_elements(s->step, by_step, s->next, count, start, s->marker, s->chain);
    for (index_t v = 0; v < s->n; ++v) invp[v] = place[v] > 0 ? start[v]++ : 0;
    for (index_t v = 0; v < s->n; ++v) {
        if (place[v] < 0) invp[v] = start[-place[v] - 1]++;
    }
    return numbered;
}

template void start_degrees<int32_t>(degree_state<int32_t> *, const int32_t *);
template void start_degrees<int64_t>(degree_state<int64_t> *, const int64_t *);
template void eliminate_all<int32_t>(degree_state<int32_t> *, int32_t);
template void eliminate_all<int64_t>(degree_state<int64_t> *, int64_t);
template void release_held<int64_t>(degree_state<int64_t> *, const int64_t *);
template int32_t number_vertices<int32_t>(degree_state<int32_t> *, int32_t *);
template int64_t number_vertices<int64_t>(degree_state<int64_t> *, int64_t *);
