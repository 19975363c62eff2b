/* How a side of the factors is cut into pages, and how much of it the windows take. */
#include "ooc/ooc_tree.h"

namespace
{

constexpr int64_t least_page = int64_t{1} << 14, most_page = int64_t{1} << 22; /* bytes: below, transfers cost more than they bring */
constexpr int64_t pages_in_window = 512;

int64_t larger(int64_t a, int64_t b)
{
    return a > b ? a : b;
}
int64_t smaller(int64_t a, int64_t b)
{
    return a < b ? a : b;
}

} // namespace

int64_t ooc_block_bytes(const supernodal_structure *s, factor_side side, int64_t supernode, int64_t element_bytes)
{
    const int64_t columns = supernode_columns(*s, supernode), rows = supernode_rows(*s, supernode);
    return (side == factor_side::lower ? rows : rows - columns) * columns * element_bytes;
}

int64_t ooc_block_offset(const supernodal_structure *s, factor_side side, int64_t supernode, int64_t element_bytes)
{
    const int64_t first = s->xsuper[supernode - 1];
    return ((side == factor_side::lower ? s->xlnz[first - 1] : s->xunz[first - 1]) - 1) * element_bytes;
}

int64_t ooc_page_bytes(int64_t largest_block, int64_t window)
{
    return smaller(smaller(larger(window / pages_in_window, least_page), most_page), larger(largest_block, 1));
}

int64_t ooc_whole_units(int64_t bytes)
{
    return (bytes + platform_direct_unit - 1) / platform_direct_unit * platform_direct_unit;
}

int64_t ooc_cut_pages(const supernodal_structure *s, factor_side side, int64_t element_bytes, int64_t page_bytes, bool whole,
                      ooc_page *pages, int64_t *page_of)
{
    int64_t count = 0, held = 0, offset = 0;
    for (int64_t number = 1; number <= s->supernodes; ++number) {
        const int64_t bytes = ooc_block_bytes(s, side, number, element_bytes);
        const bool opens = count == 0 || held + bytes > page_bytes;
        if (opens) offset += whole ? ooc_whole_units(held) : held;
        held = opens ? bytes : held + bytes;
        count += opens ? 1 : 0;
        if (pages == nullptr) continue;
        page_of[number - 1] = count - 1;
        ooc_page &page = pages[count - 1];
        if (opens) page = {};
        if (opens) page.first = number;
        if (held == bytes && bytes > 0) page.core_offset = ooc_block_offset(s, side, number, element_bytes);
        page.offset = offset;
        page.last = number;
        page.bytes = held;
        page.length = whole ? ooc_whole_units(held) : held;
    }
    return count;
}

ooc_side_sizes ooc_measure_side(const supernodal_structure *s, factor_side side, int64_t element_bytes)
{
    int64_t total = 0, block = 0;
    for (int64_t number = 1; number <= s->supernodes; ++number) {
        const int64_t bytes = ooc_block_bytes(s, side, number, element_bytes);
        total += bytes;
        block = larger(block, bytes);
    }
    return {total, block};
}

void ooc_reset_side(ooc_tree *tree, factor_side kind, bool stored)
{
    const supernodal_structure *s = &tree->structure;
    ooc_side *side = &tree->side[static_cast<int>(kind)];
    side->head = side->target_head = -1;
    for (int64_t i = 0; i < side->page_count; ++i) {
        ooc_page &page = side->pages[i];
        page.state = page_state::absent;
        page.stored = stored;
        page.dirty = page.expected = false;
        page.pins = page.target_pins = page.unmade = page.stamp = page.transfer = 0;
        for (int64_t number = page.first; number <= page.last && !stored; ++number)
            if (ooc_block_bytes(s, kind, number, 1) > 0) ++page.unmade;
    }
}

/* What is above the least goes to the sides by what they lack. The least is two pages a side, a target and a source, and what the beginning
   of the window needs to be a whole unit. */
void ooc_buffer_sizes(const ooc_request *request, int64_t core_bytes, int64_t *buffer_l, int64_t *buffer_u, int64_t *buffer_v)
{
    const supernodal_structure *s = request->structure;
    const ooc_side_sizes l = ooc_measure_side(s, factor_side::lower, request->element_bytes);
    const ooc_side_sizes u = request->symmetric == 1 ? ooc_side_sizes{} : ooc_measure_side(s, factor_side::upper, request->element_bytes);
    const auto least_of = [](const ooc_side_sizes &side) {
        return smaller(side.total, 2 * ooc_whole_units(side.largest) + platform_direct_unit);
    };
    const int64_t least_l = least_of(l), least_u = least_of(u);
    const int64_t lacking = l.total - least_l + u.total - least_u;
    const int64_t room = (request->state->max_core_size << 20) - core_bytes - least_l - least_u;
    const double share = room <= 0 || lacking <= 0 ? 0.0 : room >= lacking ? 1.0 : static_cast<double>(room) / static_cast<double>(lacking);
    const auto window = [&](int64_t least, int64_t total) {
        const int64_t bytes = least + static_cast<int64_t>(share * static_cast<double>(total - least));
        return (share >= 1.0 ? total : bytes + request->element_bytes - 1) / request->element_bytes;
    };
    *buffer_l = 0; /* row indices stay in core */
    *buffer_u = window(least_l, l.total);
    *buffer_v = window(least_u, u.total);
}
