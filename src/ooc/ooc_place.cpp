/* Where in its window a page goes, and which pages have to leave for it. */
#include "ooc/ooc_tree.h"

namespace
{

/* How much a page is worth keeping, compared word by word. */
struct page_worth {
    int64_t first, second;
    bool below(const page_worth &other) const
    {
        return first != other.first ? first < other.first : second < other.second;
    }
};
constexpr page_worth worth_nothing = {INT64_MIN, INT64_MIN};

/* The least recently used page goes: subtrees work on what was made last, and sweeps turn round at their ends. Half-made pages stay, they
   would be written twice, and so do those that were read in advance. */
page_worth worth_of(const ooc_page &page)
{
    return {page.unmade > 0 || page.expected ? 1 : 0, page.stamp};
}

bool fixed(const ooc_page &page)
{
    return page.state == page_state::moving || page.pins > 0;
}

/* Would the largest page still fit often enough if a target lay at place? */
bool admissible(const ooc_tree *tree, const ooc_side *side, int64_t place, int64_t bytes, const ooc_page *except)
{
    int64_t targets = 1, fits = 0, end = 0;
    bool placed = false;
    const auto occupy = [&](int64_t from, int64_t length) {
        if (from > end) fits += (from - end) / side->largest;
        end = from + length;
    };
    for (int64_t i = side->head; i >= 0; i = side->pages[i].after) {
        const ooc_page &page = side->pages[i];
        if (page.target_pins == 0 || &page == except) continue;
        ++targets;
        if (!placed && page.place > place) {
            occupy(place, bytes);
            placed = true;
        }
        occupy(page.place, page.bytes);
    }
    if (!placed) occupy(place, bytes);
    occupy(side->bytes, 0);
    const int64_t others = tree->threads - targets;
    return fits >= (others > 0 ? others : 0) + 1;
}

} // namespace

bool ooc_may_pin_target(const ooc_tree *tree, const ooc_side *side, const ooc_page *page)
{
    return side->natural || page->target_pins > 0 || admissible(tree, side, page->place, page->bytes, page);
}

bool ooc_admits_target(const ooc_tree *tree, const ooc_side *side, const ooc_page *page)
{
    if (page->target_pins > 0) return true;
    int64_t bytes = page->bytes, victim = -1, until = -1;
    for (int64_t i = side->head; i >= 0; i = side->pages[i].after)
        if (side->pages[i].target_pins > 0) bytes += side->pages[i].bytes;
    if (bytes > side->bytes / 4 * 3) return false;
    if (page->state == page_state::resident) return ooc_may_pin_target(tree, side, page);
    return ooc_find_place(tree, side, page, true, &victim, &until) >= 0;
}

int64_t ooc_find_place(const ooc_tree *tree, const ooc_side *side, const ooc_page *page, bool target, int64_t *victim, int64_t *until)
{
    const ooc_page *pages = side->pages;
    if (side->natural) {
        *victim = *until = -1;
        return page->offset;
    }
    int64_t best = -1;
    page_worth best_worth = worth_nothing;
    /* candidates: the beginning of the window, and the end of each page in it, where a page on its way in overlaps those on their way out
     */
    int64_t start = 0, next = side->head;
    for (;;) {
        const int64_t end = start + page->bytes;
        if (end > side->bytes) break;
        page_worth worth = worth_nothing;
        int64_t i = next;
        bool blocked = false;
        for (; i >= 0 && pages[i].place < end && !blocked; i = pages[i].after) {
            blocked = fixed(pages[i]);
            const page_worth one = worth_of(pages[i]);
            if (worth.below(one)) worth = one;
        }
        const bool better = best < 0 || worth.below(best_worth);
        if (!blocked && better && (!target || admissible(tree, side, start, page->bytes, page))) {
            best = start;
            best_worth = worth;
            *victim = next;
            *until = i;
            if (i == next) break; /* nothing has to leave */
        }
        if (next < 0) break;
        const int64_t reach = pages[next].place + pages[next].bytes;
        if (start < reach) start = reach;
        next = pages[next].after;
    }
    return best;
}

void ooc_list_insert(ooc_side *side, ooc_page *page)
{
    ooc_page *pages = side->pages;
    const int64_t self = page - pages;
    int64_t before = -1, after = side->head;
    while (after >= 0 && pages[after].place < page->place) {
        before = after;
        after = pages[after].after;
    }
    page->before = before;
    page->after = after;
    (before < 0 ? side->head : pages[before].after) = self;
    if (after >= 0) pages[after].before = self;
}

void ooc_list_remove(ooc_side *side, ooc_page *page)
{
    ooc_page *pages = side->pages;
    (page->before < 0 ? side->head : pages[page->before].after) = page->after;
    if (page->after >= 0) pages[page->after].before = page->before;
}
