/* The pager behind the factor store: brings pages into the windows, pins them while they are used, has them written when they are made. A
   thread that finds a page under way waits for it. */
#include "ooc/ooc_tree.h"

namespace
{

/* Disks bring most with two requests of a megabyte or two at a time. */
constexpr int64_t request_bytes = int64_t{1} << 21;
/* A sweep reads ahead its thread's part of this share of the window, and no more than so much. */
constexpr int64_t sweep_share = 12, sweep_bytes = int64_t{1} << 24;

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
    const int64_t place = ooc_find_place(tree, side, page, page->length, wish, &victim, &until);
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

bool is_wanted(const ooc_page *page)
{
    return page->state == page_state::absent && page->stored && page->length > 0;
}

/* Begin to read absent pages that follow each other. False when that cannot be done now. Nothing has to be written for it: the lock stays
   closed. */
bool read_ahead(ooc_tree *tree, ooc_side *side, ooc_page *page, int64_t pages)
{
    int64_t victim = -1, until = -1, length = 0;
    for (int64_t i = 0; i < pages; ++i) length += page[i].length;
    ooc_end_written(tree);
    int64_t place = ooc_find_place(tree, side, page, length, ooc_wish::ahead, &victim, &until);
    if (place < 0) return false;
    for (int64_t i = victim; i != until; i = victim) {
        victim = side->pages[i].after;
        put_out(tree, side, &side->pages[i]);
    }
    for (int64_t i = 0; i < pages; place += page[i++].length) page[i].place = place;
    if (!ooc_begin_read(tree, side, page, pages, length)) return false;
    for (int64_t i = 0; i < pages; ++i) {
        page[i].state = page_state::moving;
        page[i].stamp = ++tree->clock;
        page[i].expected = tree->purpose == ooc_purpose::factorize;
        ooc_list_insert(side, &page[i]);
    }
    return true;
}

/* A sweep has come to `page` and goes on to `stop`: read on in whole requests. Pages on its way that are still in the window count as used,
   so that they are not put out for those behind them. */
void follow_sweep(ooc_tree *tree, ooc_side *side, int64_t page, int64_t stop)
{
    const int64_t step = stop < page ? -1 : 1, share = side->bytes / (sweep_share * tree->threads);
    const int64_t most = share < sweep_bytes ? share : sweep_bytes, request = most / 4 < request_bytes ? most / 4 : request_bytes;
    int64_t ahead = 0;
    for (int64_t i = page; (stop - i) * step >= 0 && ahead <= most; i += step) {
        ooc_page *first = &side->pages[i];
        if (!is_wanted(first)) {
            first->stamp = ++tree->clock;
            ahead += first->length;
            continue;
        }
        int64_t pages = 1, bytes = first->length;
        for (; i != stop && bytes < request && is_wanted(&side->pages[i + step]); i += step, ++pages) bytes += side->pages[i + step].length;
        if (step < 0) first = &side->pages[i];
        if (!read_ahead(tree, side, first, pages)) return;
        ahead += bytes;
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

/* The address of a block of a resident page, which is used and stays until it is released. */
void *pin(ooc_tree *tree, factor_side kind, ooc_page *page, int64_t supernode)
{
    ++page->pins;
    page->stamp = ++tree->clock;
    page->expected = false;
    const int64_t within = ooc_block_offset(&tree->structure, kind, supernode, tree->element_bytes) - page->core_offset;
    return tree->side[static_cast<int>(kind)].base + page->place + within;
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
        block = pin(tree, kind, page, supernode);
        if (target) ooc_pin_target(side, page);
    }
    omp_unset_lock(&tree->lock);
    return block;
}

void end_reading(ooc_tree *tree, const ooc_page *page)
{
    while (tree->fault == 0 && page->state == page_state::moving && page->transfer != 0) ooc_end_transfer(tree, page);
}

void *hold(void *context, factor_side kind, int64_t supernode)
{
    auto *tree = static_cast<ooc_tree *>(context);
    ooc_side *side = &tree->side[static_cast<int>(kind)];
    ooc_page *page = &side->pages[side->page_of[supernode - 1]];
    omp_set_lock(&tree->lock);
    end_reading(tree, page);
    void *block = tree->fault == 0 && page->state == page_state::resident ? pin(tree, kind, page, supernode) : nullptr;
    omp_unset_lock(&tree->lock);
    return block;
}

void settle(void *context, factor_side kind, int64_t supernode)
{
    auto *tree = static_cast<ooc_tree *>(context);
    const ooc_side *side = &tree->side[static_cast<int>(kind)];
    omp_set_lock(&tree->lock);
    end_reading(tree, &side->pages[side->page_of[supernode - 1]]);
    omp_unset_lock(&tree->lock);
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

/* Pages that follow each other come in one request. */
void expect(void *context, factor_side kind, int64_t count, const int64_t *supernodes)
{
    auto *tree = static_cast<ooc_tree *>(context);
    ooc_side *side = &tree->side[static_cast<int>(kind)];
    omp_set_lock(&tree->lock);
    for (int64_t k = 0; k < count && tree->fault == 0;) {
        ooc_page *first = &side->pages[side->page_of[supernodes[k++] - 1]];
        if (!is_wanted(first)) continue;
        int64_t pages = 1, bytes = first->length;
        for (; k < count && bytes < request_bytes; ++k) {
            const ooc_page *next = &side->pages[side->page_of[supernodes[k] - 1]];
            if (next < first + pages) continue;
            if (next > first + pages || !is_wanted(next)) break;
            bytes += next->length;
            ++pages;
        }
        if (!read_ahead(tree, side, first, pages)) break;
    }
    omp_unset_lock(&tree->lock);
}

/* Only where a page begins or ends is there something to do. */
void follow(void *context, factor_side kind, int64_t supernode, int64_t last)
{
    auto *tree = static_cast<ooc_tree *>(context);
    ooc_side *side = &tree->side[static_cast<int>(kind)];
    const int64_t index = side->page_of[supernode - 1];
    const ooc_page *page = &side->pages[index];
    omp_set_lock(&tree->lock);
    if (tree->fault == 0 && (supernode == page->first || supernode == page->last || is_wanted(page)))
        follow_sweep(tree, side, index, side->page_of[last - 1]);
    omp_unset_lock(&tree->lock);
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
    tree->pager = {tree, acquire, release, expect, follow, mark, admits, 0, hold, settle};
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
