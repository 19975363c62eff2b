/* The pager behind the factor store: brings pages into the windows, pins them while they are used, writes what has been made. Transfers
   happen in the thread that needs them and without the lock; a thread that finds a page under way waits. */
#include "ooc/ooc_tree.h"

#include <cerrno>
#include <cstring>

#include "service/message_numbers.h"

namespace
{

constexpr int64_t run_share = 4; /* of a window: pages that a backward sweep reads at a time */

platform_file file_of(const ooc_tree *tree, const ooc_side *side)
{
    return tree->current->file[side == &tree->side[0] ? 0 : 1];
}

uint64_t *sums_of(const ooc_tree *tree, const ooc_side *side, const ooc_page *page)
{
    const int64_t index = page - side->pages + (side == &tree->side[0] ? 0 : tree->side[0].page_count);
    return tree->current->sums + 2 * index;
}

/* Two running sums (Fletcher 1982) over 32-bit words; notices words that changed or changed places. */
void check_sums(const char *bytes, int64_t count, uint64_t sums[2])
{
    uint64_t one = 0, two = 0;
    int64_t at = 0;
    for (; at + 8 <= count; at += 8) {
        uint64_t word;
        std::memcpy(&word, bytes + at, 8);
        one += word;
        two += one;
    }
    if (at < count) {
        uint32_t word;
        std::memcpy(&word, bytes + at, 4);
        one += word;
        two += one;
    }
    sums[0] = one;
    sums[1] = two;
}

void pause(ooc_tree *tree)
{
    omp_unset_lock(&tree->lock);
    platform_yield();
    omp_set_lock(&tree->lock);
}

/* Write a page that nobody changes meanwhile. Called and left under the lock, which is open during the transfer. */
void write_page(ooc_tree *tree, ooc_side *side, ooc_page *page)
{
    page->dirty = false;
    omp_unset_lock(&tree->lock);
    const double start = platform_seconds();
    const char *data = side->base + page->place;
    check_sums(data, page->bytes, sums_of(tree, side, page));
    const int32_t error = platform_file_write(file_of(tree, side), page->offset, data, page->bytes);
    const double seconds = platform_seconds() - start;
    omp_set_lock(&tree->lock);
    tree->write_seconds += seconds;
    tree->write_bytes += page->bytes;
    page->stored = true;
    if (error != 0) ooc_record_fault(tree, message_ooc_write_error, error);
}

/* The same for reading into the page's place. */
void read_page(ooc_tree *tree, ooc_side *side, ooc_page *page)
{
    omp_unset_lock(&tree->lock);
    const double start = platform_seconds();
    char *data = side->base + page->place;
    uint64_t sums[2];
    int32_t error = platform_file_read(file_of(tree, side), page->offset, data, page->bytes);
    if (error == 0) {
        check_sums(data, page->bytes, sums);
        const uint64_t *written = sums_of(tree, side, page);
        if (sums[0] != written[0] || sums[1] != written[1]) error = EIO; /* not what this handle wrote */
    }
    const double seconds = platform_seconds() - start;
    omp_set_lock(&tree->lock);
    tree->read_seconds += seconds;
    tree->read_bytes += page->bytes;
    if (error != 0) ooc_record_fault(tree, message_ooc_read_error, error);
}

/* Called and left under the lock, which is open while the system is asked. */
void ask_ahead(ooc_tree *tree, const ooc_side *side, ooc_page *page)
{
    if (page->expected || page->state != page_state::absent || !page->stored || page->bytes == 0) return;
    page->expected = true;
    omp_unset_lock(&tree->lock);
    platform_file_will_need(file_of(tree, side), page->offset, page->bytes);
    omp_set_lock(&tree->lock);
}

/* Put a resident page, which nobody has pinned, out of the window. */
void put_out(ooc_tree *tree, ooc_side *side, ooc_page *page)
{
    page->state = page_state::moving;
    if (page->dirty) write_page(tree, side, page);
    ooc_list_remove(side, page);
    page->state = page_state::absent;
    page->expected = false;
}

/* Bring an absent page in. False when there is no place at the moment. */
bool bring_in(ooc_tree *tree, ooc_side *side, ooc_page *page, bool target)
{
    int64_t victim = -1, until = -1;
    const int64_t place = ooc_find_place(tree, side, page, target, &victim, &until);
    if (place < 0) return false;
    for (int64_t i = victim; i != until; i = side->pages[i].after) side->pages[i].state = page_state::moving;
    page->state = page_state::moving;
    page->place = place;
    ooc_list_insert(side, page); /* the place is taken from now on */
    const ooc_page *pages = side->pages;
    while (page->after >= 0 && pages[page->after].place < place + page->bytes) put_out(tree, side, &side->pages[page->after]);
    if (page->stored && page->bytes > 0) read_page(tree, side, page);
    page->expected = true;
    page->state = page_state::resident;
    page->stamp = ++tree->clock;
    return true;
}

/* The system reads ahead by itself where reads ascend. A sweep that descends, away from the neighbour that was used last, takes a run of
   pages at a time, from its far end to the page that is wanted: several times as fast as page by page. */
bool bring_run_in(ooc_tree *tree, ooc_side *side, ooc_page *page)
{
    const int64_t index = page - side->pages;
    const int64_t before = index > 0 ? side->pages[index - 1].stamp : 0, after = index + 1 < side->page_count ? page[1].stamp : 0;
    int64_t first = index, bytes = page->bytes;
    for (; before < after && first > 0; --first) {
        const ooc_page &next = side->pages[first - 1];
        bytes += next.bytes;
        if (next.state != page_state::absent || bytes > side->bytes / run_share) break;
    }
    for (; first < index && tree->fault == 0; ++first)
        if (side->pages[first].state == page_state::absent && !bring_in(tree, side, &side->pages[first], false)) break;
    return page->state != page_state::absent || bring_in(tree, side, page, false);
}

void *acquire(void *context, factor_side kind, int64_t supernode, block_use use)
{
    auto *tree = static_cast<ooc_tree *>(context);
    ooc_side *side = &tree->side[static_cast<int>(kind)];
    ooc_page *page = &side->pages[side->page_of[supernode - 1]];
    const bool target = use != block_use::read;
    void *block = nullptr;
    omp_set_lock(&tree->lock);
    while (tree->fault == 0) {
        if (page->state == page_state::absent) {
            const bool sweeps = tree->purpose == ooc_purpose::solve;
            if (!(sweeps ? bring_run_in(tree, side, page) : bring_in(tree, side, page, target))) pause(tree);
            continue;
        }
        if (page->state == page_state::resident) {
            if (!target || ooc_may_pin_target(tree, side, page)) break;
            if (page->pins == 0) {
                put_out(tree, side, page);
                continue;
            }
        }
        pause(tree);
    }
    if (tree->fault == 0) {
        ++page->pins;
        if (target) ++page->target_pins;
        page->stamp = ++tree->clock;
        page->expected = false;
        block = side->base + page->place + (ooc_block_offset(&tree->structure, kind, supernode, tree->element_bytes) - page->offset);
    }
    omp_unset_lock(&tree->lock);
    return block;
}

void finish_target(ooc_tree *tree, ooc_side *side, ooc_page *page, block_use use)
{
    --page->target_pins;
    page->dirty = true;
    if (use == block_use::create && page->unmade > 0) --page->unmade;
    /* complete: written once, while it may be read */
    if (page->unmade == 0 && page->target_pins == 0 && tree->fault == 0) write_page(tree, side, page);
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

void expect(void *context, factor_side kind, int64_t supernode)
{
    auto *tree = static_cast<ooc_tree *>(context);
    ooc_side *side = &tree->side[static_cast<int>(kind)];
    omp_set_lock(&tree->lock);
    ask_ahead(tree, side, &side->pages[side->page_of[supernode - 1]]);
    omp_unset_lock(&tree->lock);
}

} // namespace

void ooc_bind_pager(ooc_tree *tree)
{
    tree->pager = {tree, acquire, release, expect, admits, 0};
}

void ooc_record_fault(ooc_tree *tree, int32_t message, int32_t error)
{
    if (tree->fault != 0) return;
    tree->fault = error;
    tree->fault_message = message;
    tree->state->stage_error = ooc_error_data;
}

void ooc_flush(ooc_tree *tree)
{
    omp_set_lock(&tree->lock);
    for (int64_t k = 0; k < tree->sides; ++k) {
        ooc_side *side = &tree->side[k];
        for (int64_t i = 0; i < side->page_count && tree->fault == 0; ++i) {
            ooc_page *page = &side->pages[i];
            if (page->state == page_state::resident && page->dirty) write_page(tree, side, page);
        }
    }
    omp_unset_lock(&tree->lock);
}
