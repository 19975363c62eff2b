/* The numeric factors of one matrix number, and the one seam through which numeric code reaches the block of a supernode: in core an
   address computation, out of core a page window. */
#pragma once

#include <cstdint>

#include "state/structure.h"

enum class factor_side { lower, upper };       /* lnz or unz */
enum class block_use { read, update, create }; /* create: the old contents are not wanted */

/* Out-of-core access. acquire gives the address of the block of a supernode, null after a failure (which it has recorded); every block
   that was acquired goes back through release; a block used with update or create is written back then or later. Thread-safe. */
struct block_pager {
    void *context;
    void *(*acquire)(void *context, factor_side side, int64_t supernode, block_use use);
    void (*release)(void *context, factor_side side, int64_t supernode, block_use use);
    /* Begin to read blocks that will be asked for, in this order, as many as can be now; may be null. */
    void (*expect)(void *context, factor_side side, int64_t count, const int64_t *supernodes);
    /* A sweep has come to a supernode and goes on, up or down, to `last`: begin to read what comes next. */
    void (*follow)(void *context, factor_side side, int64_t supernode, int64_t last);
    void (*mark)(void *context); /* what is used from now on stays while others are read ahead */
    /* Whether a block may be held for create beside those that are, while no other is held. The first one always may. */
    bool (*admits)(void *context, factor_side side, int64_t supernode);
    int64_t window_bytes = 0; /* that blocks may take in core, of all sides */
    /* Acquire a block to read it if it is in core or on its way, so that the caller may hold others; null: it is neither. */
    void *(*hold)(void *context, factor_side side, int64_t supernode) = nullptr;
    void (*settle)(void *context, factor_side side, int64_t supernode) = nullptr; /* wait for a block that is on its way */
};

template <typename value_t>
struct factor_store {
    value_t *lnz, *unz;         /* in core; null with a pager */
    int64_t *pivots;            /* [neqns] pivot records, borrowed */
    value_t *diagonal;          /* [neqns] diagonal store of this factorization, borrowed */
    value_t *diagonal_unscaled; /* [neqns] unscaled diagonal of A, for the pivot hook, borrowed */
    const block_pager *pager;   /* null in core */
};

template <typename value_t>
inline value_t *acquire_block(const factor_store<value_t> &store, const supernodal_structure &s, factor_side side, int64_t number,
                              block_use use)
{
    if (store.pager != nullptr) return static_cast<value_t *>(store.pager->acquire(store.pager->context, side, number, use));
    const int64_t first = s.xsuper[number - 1];
    return side == factor_side::lower ? store.lnz + (s.xlnz[first - 1] - 1) : store.unz + (s.xunz[first - 1] - 1);
}

/* With a pager, a block to read that is in core or on its way, else null. */
template <typename value_t>
inline const value_t *hold_block(const factor_store<value_t> &store, factor_side side, int64_t number)
{
    if (store.pager->hold == nullptr) return nullptr;
    return static_cast<value_t *>(store.pager->hold(store.pager->context, side, number));
}

/* Hint that the blocks will be asked for soon, in this order. */
template <typename value_t>
inline void expect_blocks(const factor_store<value_t> &store, factor_side side, int64_t count, const int64_t *numbers)
{
    if (store.pager == nullptr || store.pager->expect == nullptr) return;
    store.pager->expect(store.pager->context, side, count, numbers);
}

template <typename value_t>
inline void release_block(const factor_store<value_t> &store, factor_side side, int64_t number, block_use use)
{
    if (store.pager != nullptr) store.pager->release(store.pager->context, side, number, use);
}
