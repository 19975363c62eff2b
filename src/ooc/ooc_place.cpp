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

/* The least recently used page goes: subtrees work on what was made last, and sweeps turn round at their ends. What was read ahead for a
   batch, or used since the mark, will be used again soon. Half-made pages stay, they would be written twice. Of the places for a member of
   a batch the first one is best, so that all free places are together. */
page_worth worth_of(const ooc_tree *tree, const ooc_page &page, ooc_wish wish)
{
    const bool member = wish == ooc_wish::target && tree->mark > 0;
    return {page.unmade > 0 ? 2 : page.expected || page.stamp >= tree->mark ? 1 : 0, member ? 0 : page.stamp};
}

bool fixed(const ooc_tree *tree, const ooc_page &page, ooc_wish wish)
{
    if (page.state == page_state::moving || page.pins > 0 || page.transfer != 0) return true;
    return wish == ooc_wish::ahead && (page.dirty || page.expected || page.stamp >= tree->mark);
}

/* Would the largest page still fit often enough if a target lay at place? */
bool admissible(const ooc_tree *tree, const ooc_side *side, int64_t place, int64_t length)
{
    int64_t targets = 1, fits = 0, end = 0;
    bool placed = false;
    const auto occupy = [&](int64_t from, int64_t bytes) {
        if (from > end) fits += (from - end) / side->largest;
        end = from + bytes;
    };
    for (int64_t i = side->target_head; i >= 0; i = side->pages[i].next_target) {
        const ooc_page &other = side->pages[i];
        ++targets;
        if (!placed && other.place > place) {
            occupy(place, length);
            placed = true;
        }
        occupy(other.place, other.length);
    }
    if (!placed) occupy(place, length);
    occupy(side->bytes, 0);
    const int64_t others = tree->threads - targets;
    return fits >= (others > 0 ? others : 0) + 1;
}

} // namespace

bool ooc_may_pin_target(const ooc_tree *tree, const ooc_side *side, const ooc_page *page)
{
    return side->natural || page->target_pins > 0 || admissible(tree, side, page->place, page->length);
}

bool ooc_admits_target(const ooc_tree *tree, const ooc_side *side, const ooc_page *page)
{
    if (page->target_pins > 0) return true;
    int64_t bytes = page->length, victim = -1, until = -1;
    for (int64_t i = side->target_head; i >= 0; i = side->pages[i].next_target) bytes += side->pages[i].length;
    if (bytes > side->bytes / 16 * 13) return false;
    if (page->state == page_state::resident) return ooc_may_pin_target(tree, side, page);
    return ooc_find_place(tree, side, page, page->length, ooc_wish::target, &victim, &until) >= 0;
}

int64_t ooc_find_place(const ooc_tree *tree, const ooc_side *side, const ooc_page *page, int64_t length, ooc_wish wish, int64_t *victim,
                       int64_t *until)
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
    while (start + length <= side->bytes) {
        const int64_t end = start + length;
        page_worth worth = worth_nothing;
        int64_t i = next, obstacle = -1;
        for (; i >= 0 && pages[i].place < end && obstacle < 0; i = pages[i].after) {
            const page_worth one = worth_of(tree, pages[i], wish);
            if (worth.below(one)) worth = one;
            if (fixed(tree, pages[i], wish) || (best >= 0 && !worth.below(best_worth))) obstacle = i;
        }
        if (obstacle < 0 && (wish != ooc_wish::target || admissible(tree, side, start, length))) {
            best = start;
            best_worth = worth;
            *victim = next;
            *until = i;
            if (i == next) break; /* nothing has to leave */
        }
        /* all places before the end of the obstacle have it in them as well */
        const int64_t passed = obstacle >= 0 ? obstacle : next;
        if (passed < 0) break;
        for (; next >= 0; next = pages[next].after) {
            const int64_t reach = pages[next].place + pages[next].length;
            if (start < reach) start = reach;
            if (next == passed) break;
        }
        next = pages[passed].after;
    }
    return best;
}

void ooc_pin_target(ooc_side *side, ooc_page *page)
{
    if (++page->target_pins > 1) return;
    int64_t *link = &side->target_head;
    while (*link >= 0 && side->pages[*link].place < page->place) link = &side->pages[*link].next_target;
    page->next_target = *link;
    *link = page - side->pages;
}

void ooc_unpin_target(ooc_side *side, ooc_page *page)
{
    if (--page->target_pins > 0) return;
    int64_t *link = &side->target_head;
    while (*link != page - side->pages) link = &side->pages[*link].next_target;
    *link = page->next_target;
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
