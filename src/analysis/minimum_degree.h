/* Minimum external degree with multiple elimination on a quotient graph, as one resumable record (Liu 1985, "Modification of the minimum
   degree algorithm by multiple elimination"; George and Liu 1989, "The evolution of the minimum degree ordering algorithm").

   The graph lives in place. A vertex v owns the segment xadj[v] .. xadj[v+1]-1 of adj. While v is not eliminated, the segment lists its
   neighbours, vertices and elements mixed, ended by 0 when it is not full. Once v is eliminated it is an element, and its segment starts
   the list of the vertices it touches; the list goes on in the segment of element e where it holds -e. The segments that an element takes
   over are those of the elements it absorbed: each of them held the pivot itself, so there is always one place left for the link.

   A held vertex is never eliminated: it counts in the degrees of its neighbours, and waits. With halo vertices held, a leaf of a
   dissection sees the separators around it (Pellegrini, Roman and Amestoy 2000, "Hybridizing nested dissection and halo approximate
   minimum degree for efficient sparse matrix ordering").

   The elimination also gives the assembly tree, so the numbering is a post-order of it, with the child of the longest front last: the fill
   stays, and a column is followed by its parent wherever that can be. */
#pragma once

#include <cstdint>

template <typename index_t>
struct degree_state {
    index_t n;
    const index_t *xadj; /* [n + 1] */
    index_t *adj;        /* destroyed */
    const index_t *held; /* [n] non-zero: held back; or null */
    index_t head_size;   /* buckets of head; degrees from head_size - 1 on share the last one; above n */
    index_t tag_limit;   /* of marker; above 2n + 8 */
    index_t tag;
    index_t step;      /* pivots so far */
    index_t remaining; /* weight of the vertices that are neither eliminated nor held */
    index_t *head;     /* [head_size] first vertex of each degree */
    index_t *next;     /* [n] degree list; of a vertex on no list: its quotient neighbours when its degree is to be updated, else 0;
                          of an element: the element that absorbed it, 0 while there is none */
    index_t *prev;     /* [n] degree list, -(degree + 1) at the first vertex, 0 on no list; of an element: length of its front */
    index_t *weight;   /* [n] vertices merged into this one, itself included; 0 when it is merged into another one */
    index_t *marker;   /* [n] tags; tag_limit for a merged vertex */
    index_t *chain;    /* [n] links of short-lived lists */
    index_t *place;    /* [n] 0 not eliminated; k > 0 the k-th pivot; -v merged into v */
};

/* Start the degree lists. weight_in[n] or null for ones; remaining is the total of the vertices not held. */
template <typename index_t>
void start_degrees(degree_state<index_t> *s, const index_t *weight_in);

/* Eliminate until only held vertices remain. */
template <typename index_t>
void eliminate_all(degree_state<index_t> *s, index_t delta);

/* Let the held vertices go: they enter the degree lists, and held must be null from here on. */
template <typename index_t>
void release_held(degree_state<index_t> *s, const index_t *held);

/* invp[v] for all eliminated and merged vertices, 1 .. their count; 0 for those still held. Destroys the state; invp may be s->next.
   Returns the count. */
template <typename index_t>
index_t number_vertices(degree_state<index_t> *s, index_t *invp);

/* A state for a whole graph: next and prev in invp and perm, the rest in lists[5n + 1]. */
degree_state<int64_t> degree_state_in_lists(int64_t neqns, const int64_t *xadj, int64_t *adj, int64_t *invp, int64_t *perm, int64_t *lists,
                                            int64_t integer_limit);
