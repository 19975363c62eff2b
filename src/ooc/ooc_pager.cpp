/* The pager behind the factor store: brings pages into the windows, pins them while they are used, has them written when they are made. A
   thread that finds a page under way waits for it. */
#include "ooc/ooc_tree.h"

namespace
{

constexpr int64_t sweep_share = 12, sweep_bytes = int64_t{1} << 24, sweep_pages = 2; /* what a sweep reads ahead, see follow_sweep */

/* Put a resident page, which nobody has pinned, out of the window. */
void put_out(ooc_tree *tree, ooc_side *side, ooc_page *page)
{
    page->state = page_state::moving;
    if (page->dirty) ooc_write_page(tree, side, page);
    while (page->transfer != 0) ooc_end_transfer(tree, page);
    ooc_list_remove(side, page);
    page->state = page_state::absent;
    page->expected = false;
}

/* Take the place for an absent page, and put out what is there. False when there is none at the moment. */
bool take_place(ooc_tree *tree, ooc_side *side, ooc_page *page, ooc_wish wish)
{
    int64_t victim = -1, until = -1;
    ooc_end_written(tree);
    const int64_t place = ooc_find_place(tree, side, page, wish, &victim, &until);
    if (place < 0) return false;
    for (int64_t i = victim; i != until; i = side->pages[i].after) side->pages[i].state = page_state::moving;
    page->state = page_state::moving;
    page->place = place;
    ooc_list_insert(side, page); /* the place is taken from now on */
    const ooc_page *pages = side->pages;
    while (page->after >= 0 && pages[page->after].place < place + page->length) put_out(tree, side, &side->pages[page->after]);
    page->stamp = ++tree->clock;
    return true;
}

bool bring_in(ooc_tree *tree, ooc_side *side, ooc_page *page, bool target)
{
    if (!take_place(tree, side, page, target ? ooc_wish::target : ooc_wish::source)) return false;
    if (page->stored && page->length > 0) ooc_read_page(tree, side, page);
    page->state = page_state::resident;
    return true;
}

/* Begin to read an absent page. False when that cannot be done now. Nothing has to be written for it: the lock stays closed. */
bool read_ahead(ooc_tree *tree, ooc_side *side, ooc_page *page)
{
    if (page->state != page_state::absent || !page->stored || page->length == 0) return true;
    if (!take_place(tree, side, page, ooc_wish::ahead)) return false;
    page->expected = tree->purpose == ooc_purpose::factorize;
    if (ooc_begin_read(tree, side, page)) return true;
    page->expected = false;
    ooc_list_remove(side, page);
    page->state = page_state::absent;
    return false;
}

/* A sweep has come to `page`: read on in its direction, away from the neighbour that was used last. Two pages, and more as long as that is
   a small share of the window: beyond the end of a subtree they are read in vain. */
void follow_sweep(ooc_tree *tree, ooc_side *side, const ooc_page *page, int64_t supernode)
{
    if (supernode != page->first && supernode != page->last) return;
    const int64_t index = page - side->pages, last = side->page_count - 1;
    const int64_t before = index > 0 ? side->pages[index - 1].stamp : 0, after = index < last ? side->pages[index + 1].stamp : 0;
    const int64_t step = before < after ? -1 : 1;
    int64_t bytes = side->bytes / (sweep_share * tree->threads);
    if (bytes > sweep_bytes) bytes = sweep_bytes;
    int64_t pages = sweep_pages;
    for (int64_t i = index + step; i >= 0 && i <= last && (bytes > 0 || pages > 0); i += step, --pages) {
        bytes -= side->pages[i].length;
        if (!read_ahead(tree, side, &side->pages[i])) return;
    }
}

/* Come closer to a pinned page. True when it can be pinned. */
bool approach(ooc_tree *tree, ooc_side *side, ooc_page *page, bool target)
{
    if (page->transfer != 0 && (target || page->state == page_state::moving)) {
        ooc_end_transfer(tree, page);
    } else if (page->state == page_state::absent) {
        if (target && tree->mark > 0 && ooc_end_oldest(tree)) return false; /* the last batch makes room first: no gaps remain */
        if (!bring_in(tree, side, page, target) && !ooc_end_oldest(tree)) ooc_pause(tree);
    } else if (page->state == page_state::moving) {
        ooc_pause(tree);
    } else if (!target || ooc_may_pin_target(tree, side, page)) {
        return true;
    } else if (page->pins == 0) {
        put_out(tree, side, page);
    } else {
        ooc_pause(tree);
    }
    return false;
}

void *acquire(void *context, factor_side kind, int64_t supernode, block_use use)
{
    auto *tree = static_cast<ooc_tree *>(context);
    ooc_side *side = &tree->side[static_cast<int>(kind)];
    ooc_page *page = &side->pages[side->page_of[supernode - 1]];
    const bool target = use != block_use::read;
    void *block = nullptr;
    omp_set_lock(&tree->lock);
    while (tree->fault == 0 && !approach(tree, side, page, target)) {}
    if (tree->fault == 0) {
        ++page->pins;
        if (target) ooc_pin_target(side, page);
        page->stamp = ++tree->clock;
        page->expected = false;
        if (tree->purpose == ooc_purpose::solve) follow_sweep(tree, side, page, supernode);
        block = side->base + page->place + (ooc_block_offset(&tree->structure, kind, supernode, tree->element_bytes) - page->core_offset);
    }
    omp_unset_lock(&tree->lock);
    return block;
}

void finish_target(ooc_tree *tree, ooc_side *side, ooc_page *page, block_use use)
{
    ooc_unpin_target(side, page);
    page->dirty = true;
    if (use == block_use::create && page->unmade > 0) --page->unmade;
    /* complete: written once, while it may be read */
    if (page->unmade == 0 && page->target_pins == 0 && tree->fault == 0) ooc_write_page(tree, side, page);
}

void release(void *context, factor_side kind, int64_t supernode, block_use use)
{
    auto *tree = static_cast<ooc_tree *>(context);
    ooc_side *side = &tree->side[static_cast<int>(kind)];
    ooc_page *page = &side->pages[side->page_of[supernode - 1]];
    omp_set_lock(&tree->lock);
    if (use != block_use::read) finish_target(tree, side, page, use);
    --page->pins;
    omp_unset_lock(&tree->lock);
}

bool admits(void *context, factor_side kind, int64_t supernode)
{
    auto *tree = static_cast<ooc_tree *>(context);
    const ooc_side *side = &tree->side[static_cast<int>(kind)];
    omp_set_lock(&tree->lock);
    const bool admitted = ooc_admits_target(tree, side, &side->pages[side->page_of[supernode - 1]]);
    omp_unset_lock(&tree->lock);
    return admitted;
}

bool expect(void *context, factor_side kind, int64_t supernode)
{
    auto *tree = static_cast<ooc_tree *>(context);
    ooc_side *side = &tree->side[static_cast<int>(kind)];
    omp_set_lock(&tree->lock);
    const bool expected = tree->fault == 0 && read_ahead(tree, side, &side->pages[side->page_of[supernode - 1]]);
    omp_unset_lock(&tree->lock);
    return expected;
}

void mark(void *context)
{
    auto *tree = static_cast<ooc_tree *>(context);
    omp_set_lock(&tree->lock);
    tree->mark = ++tree->clock;
    omp_unset_lock(&tree->lock);
}

} // namespace

void ooc_bind_pager(ooc_tree *tree)
{
    tree->pager = {tree, acquire, release, expect, mark, admits, 0};
}

void ooc_record_fault(ooc_tree *tree, int32_t message, int32_t error)
{
    if (tree->fault != 0) return;
    tree->fault = error;
    tree->fault_message = message;
    tree->state->stage_error = ooc_error_data;
}

void ooc_settle(ooc_tree *tree)
{
    omp_set_lock(&tree->lock);
    while (ooc_end_oldest(tree)) {}
    omp_unset_lock(&tree->lock);
}

void ooc_flush(ooc_tree *tree)
{
    omp_set_lock(&tree->lock);
    for (int64_t k = 0; k < tree->sides; ++k) {
        ooc_side *side = &tree->side[k];
        for (int64_t i = 0; i < side->page_count && tree->fault == 0; ++i) {
            ooc_page *page = &side->pages[i];
            if (page->state == page_state::resident && page->dirty) ooc_write_page(tree, side, page);
        }
    }
    omp_unset_lock(&tree->lock);
}
