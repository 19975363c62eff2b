/* Pages on their way between window and file: in the background where the system takes them, else in the thread that asks. A transfer in
   the background is ended by whoever needs its page or its place. */
#include "ooc/ooc_tree.h"

#include <cerrno>
#include <cstring>

#include "service/message_numbers.h"

namespace
{

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

bool came_back_whole(const ooc_tree *tree, const ooc_side *side, const ooc_page *page)
{
    uint64_t sums[2];
    check_sums(side->base + page->place, page->bytes, sums);
    const uint64_t *written = sums_of(tree, side, page);
    return sums[0] == written[0] && sums[1] == written[1];
}

/* Begin a transfer of the places of pages that follow each other. False when it has to be made at once. */
bool begin(ooc_tree *tree, ooc_side *side, ooc_page *page, int64_t pages, int64_t length, bool writes)
{
    int64_t free = 0;
    while (free < ooc_transfer_limit && tree->transfer[free].page != nullptr) ++free;
    if (free == ooc_transfer_limit) return false;
    ooc_transfer *transfer = &tree->transfer[free];
    char *data = side->base + page->place;
    const int64_t way = tree->transfer_count % (ooc_more_ways + 1);
    platform_file file = way == 0 ? -1 : tree->current->other[side == &tree->side[0] ? 0 : 1][way - 1];
    if (file < 0) file = file_of(tree, side);
    if (!platform_transfer_begin(&transfer->record, writes, file, page->offset, data, length)) return false;
    transfer->page = page;
    transfer->pages = pages;
    transfer->side = side;
    transfer->claimed = false;
    transfer->number = ++tree->transfer_count;
    for (int64_t i = 0; i < pages; ++i) page[i].transfer = free + 1;
    return true;
}

void account(ooc_tree *tree, int64_t bytes, bool writes, double seconds, int32_t error)
{
    (writes ? tree->write_seconds : tree->read_seconds) += seconds;
    (writes ? tree->write_bytes : tree->read_bytes) += bytes;
    if (error != 0) ooc_record_fault(tree, writes ? message_ooc_write_error : message_ooc_read_error, error);
}

/* Of a transfer that has ended. */
void settle(ooc_tree *tree, ooc_transfer *transfer, double seconds, int32_t error)
{
    const bool writes = transfer->record.writes;
    int64_t bytes = 0;
    for (int64_t i = 0; i < transfer->pages; ++i) {
        ooc_page *page = transfer->page + i;
        page->transfer = 0;
        bytes += page->bytes;
        if (writes)
            page->stored = true;
        else
            page->state = page_state::resident;
    }
    account(tree, bytes, writes, seconds, error);
    transfer->page = nullptr;
}

/* End a transfer that nobody else waits for. */
void end(ooc_tree *tree, ooc_transfer *transfer)
{
    transfer->claimed = true;
    omp_unset_lock(&tree->lock);
    const double start = platform_seconds();
    int32_t error = platform_transfer_wait(&transfer->record);
    const double seconds = platform_seconds() - start;
    for (int64_t i = 0; i < transfer->pages && !transfer->record.writes && error == 0; ++i)
        if (!came_back_whole(tree, transfer->side, transfer->page + i)) error = EIO;
    omp_set_lock(&tree->lock);
    settle(tree, transfer, seconds, error);
}

} // namespace

void ooc_pause(ooc_tree *tree)
{
    omp_unset_lock(&tree->lock);
    platform_yield();
    omp_set_lock(&tree->lock);
}

void ooc_end_transfer(ooc_tree *tree, const ooc_page *page)
{
    ooc_transfer *transfer = &tree->transfer[page->transfer - 1];
    if (transfer->claimed)
        ooc_pause(tree);
    else
        end(tree, transfer);
}

void ooc_end_written(ooc_tree *tree)
{
    for (ooc_transfer &transfer : tree->transfer)
        if (transfer.page != nullptr && transfer.record.writes && !transfer.claimed && platform_transfer_ended(&transfer.record))
            settle(tree, &transfer, 0.0, platform_transfer_wait(&transfer.record));
}

bool ooc_end_oldest(ooc_tree *tree)
{
    ooc_transfer *oldest = nullptr;
    for (ooc_transfer &transfer : tree->transfer)
        if (transfer.page != nullptr && !transfer.claimed && (oldest == nullptr || transfer.number < oldest->number)) oldest = &transfer;
    if (oldest != nullptr) end(tree, oldest);
    return oldest != nullptr;
}

void ooc_write_page(ooc_tree *tree, ooc_side *side, ooc_page *page)
{
    page->dirty = false;
    omp_unset_lock(&tree->lock);
    char *data = side->base + page->place;
    if (page->length > page->bytes) std::memset(data + page->bytes, 0, static_cast<size_t>(page->length - page->bytes));
    check_sums(data, page->bytes, sums_of(tree, side, page));
    omp_set_lock(&tree->lock);
    if (page->length == 0 || begin(tree, side, page, 1, page->length, true)) return;
    omp_unset_lock(&tree->lock);
    const double start = platform_seconds();
    const int32_t error = platform_file_write(file_of(tree, side), page->offset, data, page->length);
    const double seconds = platform_seconds() - start;
    omp_set_lock(&tree->lock);
    page->stored = true;
    account(tree, page->bytes, true, seconds, error);
}

void ooc_read_page(ooc_tree *tree, ooc_side *side, ooc_page *page)
{
    omp_unset_lock(&tree->lock);
    const double start = platform_seconds();
    int32_t error = platform_file_read(file_of(tree, side), page->offset, side->base + page->place, page->length);
    const double seconds = platform_seconds() - start;
    if (error == 0 && !came_back_whole(tree, side, page)) error = EIO; /* not what this handle wrote */
    omp_set_lock(&tree->lock);
    account(tree, page->bytes, false, seconds, error);
}

bool ooc_begin_read(ooc_tree *tree, ooc_side *side, ooc_page *page, int64_t pages, int64_t length)
{
    return begin(tree, side, page, pages, length, false);
}
