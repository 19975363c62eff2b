/* Life of the file layer: made once for an analysis, opened and closed around every factorization and solve, deleted with the handle's
   factors. */
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ooc/ooc_tree.h"
#include "service/message_numbers.h"
#include "service/service.h"

namespace
{

int64_t report(const ooc_request *request, int32_t message, int32_t error, int64_t code)
{
    char words[128];
    platform_error_text(error, words, sizeof words);
    if (request->message_flag != 0) service_print_message(0, message, 1, words);
    request->state->stage_error = code;
    return code;
}

/* The page map is the first table of the group of the side's file. */
void bind_tables(const ooc_request *request, ooc_tree *tree)
{
    const int64_t supernodes = request->structure->supernodes, group = 4 * supernodes + 6;
    for (int64_t k = 0; k < tree->sides; ++k) tree->side[k].page_of = request->tables + (ooc_file_lnz - 1 + k) * group;
}

bool make_pages(const ooc_request *request, ooc_tree *tree)
{
    for (int64_t k = 0; k < tree->sides; ++k) {
        ooc_side *side = &tree->side[k];
        const factor_side kind = k == 0 ? factor_side::lower : factor_side::upper;
        const ooc_side_sizes sizes = ooc_measure_side(request->structure, kind, request->element_bytes);
        const int64_t window = request->window_entries[k] * request->element_bytes, largest = sizes.largest > 0 ? sizes.largest : 1;
        side->natural = window >= sizes.total;
        side->largest = side->natural ? largest : ooc_whole_units(largest);
        const int64_t page_bytes = ooc_page_bytes(side->largest, window);
        side->page_count = ooc_cut_pages(request->structure, kind, request->element_bytes, page_bytes, !side->natural, nullptr, nullptr);
        side->pages = static_cast<ooc_page *>(service_calloc(side->page_count + 1, sizeof(ooc_page), 64));
        if (side->pages == nullptr) return false;
        ooc_cut_pages(request->structure, kind, request->element_bytes, page_bytes, !side->natural, side->pages, side->page_of);
        for (int64_t i = 0; i < side->page_count; ++i) side->total += side->pages[i].length;
        side->head = side->target_head = -1;
    }
    return true;
}

void free_tree(ooc_tree *tree)
{
    for (int64_t i = 0; i < tree->set_count; ++i) service_free_direct(tree->sets[i].sums);
    service_free_direct(tree->sets);
    for (ooc_side &side : tree->side) service_free_direct(side.pages);
    omp_destroy_lock(&tree->lock);
    service_free_direct(tree);
}

ooc_tree *make_tree(const ooc_request *request)
{
    auto *tree = static_cast<ooc_tree *>(service_calloc(1, sizeof(ooc_tree), 64));
    if (tree == nullptr) return nullptr;
    omp_init_lock(&tree->lock);
    ooc_bind_pager(tree);
    tree->state = request->state;
    tree->element_bytes = request->element_bytes;
    tree->sides = request->symmetric == 1 ? 1 : 2;
    (void)std::snprintf(tree->path, sizeof tree->path, "%s", request->path);
    bind_tables(request, tree);
    if (make_pages(request, tree)) return tree;
    free_tree(tree);
    return nullptr;
}

/* The set of a matrix number, made with its table of sums when it is new; null when memory ran out. */
ooc_file_set *set_of(ooc_tree *tree, int64_t number)
{
    if (number > tree->set_count) {
        void *grown = service_realloc(tree->sets, static_cast<uint64_t>(number) * sizeof(ooc_file_set));
        if (grown == nullptr) return nullptr;
        tree->sets = static_cast<ooc_file_set *>(grown);
        for (; tree->set_count < number; ++tree->set_count) tree->sets[tree->set_count] = ooc_file_set{};
    }
    ooc_file_set *set = &tree->sets[number - 1];
    const int64_t pages = tree->side[0].page_count + tree->side[1].page_count;
    if (set->sums == nullptr) set->sums = static_cast<uint64_t *>(service_calloc(2 * pages + 1, sizeof(uint64_t), 64));
    return set->sums == nullptr ? nullptr : set;
}

/* Files to write to: those of an earlier factorization that are still open, else new ones. */
int64_t make_files(const ooc_request *request, ooc_tree *tree, ooc_file_set *set)
{
    if (set->open) return 0;
    ooc_remove_files(tree, set, false);
    const int32_t error = ooc_create_files(tree, request, set);
    return error == 0 ? 0 : report(request, message_ooc_open_error, error, ooc_error_open);
}

/* Files to read from. */
int64_t find_files(const ooc_request *request, const ooc_tree *tree, ooc_file_set *set)
{
    int32_t error = ENOENT, message = message_ooc_solve_open_lnz;
    if (set->exists && !set->open) error = ooc_reopen_files(tree, request, set, &message);
    if (!set->open) {
        if (request->message_flag != 0) service_print_message(0, message, 0);
        return report(request, message_ooc_open_error, error, ooc_error_open);
    }
    if (ooc_files_complete(tree, set)) return 0;
    return report(request, message_ooc_read_error, EIO, ooc_error_data);
}

void bind_windows(ooc_tree *tree, void *window_l, int64_t entries_l, void *window_u, int64_t entries_u)
{
    void *const windows[] = {window_l, window_u};
    const int64_t entries[] = {entries_l, entries_u};
    for (int64_t k = 0; k < tree->sides; ++k) {
        ooc_side *side = &tree->side[k];
        auto *base = static_cast<char *>(windows[k]);
        const auto past = static_cast<int64_t>(reinterpret_cast<uintptr_t>(base) % platform_direct_unit);
        const int64_t skip = side->natural || past == 0 ? 0 : platform_direct_unit - past;
        if (side->base != base + skip) tree->warm_number = 0;
        side->base = base + skip;
        side->bytes = entries[k] * tree->element_bytes - skip;
    }
}

/* Threads whose targets the windows have room for beside one source. */
void count_threads(ooc_tree *tree, int64_t wanted)
{
    int64_t places = INT64_MAX, bytes = 0;
    for (int64_t k = 0; k < tree->sides; ++k) {
        const ooc_side &side = tree->side[k];
        bytes += side.bytes;
        if (!side.natural && side.bytes / side.largest < places) places = side.bytes / side.largest;
    }
    tree->threads = places - 1 < wanted ? places - 1 : wanted;
    if (tree->threads < 1) tree->threads = 1;
    tree->pager.window_bytes = bytes;
}

void start_pages(ooc_tree *tree, ooc_purpose purpose, int64_t number)
{
    const bool warm = purpose == ooc_purpose::solve && tree->warm_number == number;
    tree->warm_number = 0;
    for (int64_t k = 0; k < tree->sides && !warm; ++k)
        ooc_reset_side(tree, k == 0 ? factor_side::lower : factor_side::upper, purpose == ooc_purpose::solve);
    tree->purpose = purpose;
    tree->fault = 0;
    tree->mark = purpose == ooc_purpose::solve ? INT64_MAX : 0;
    tree->read_seconds = tree->write_seconds = 0.0;
    tree->read_bytes = tree->write_bytes = 0;
}

void publish_transfers(const ooc_request *request, const ooc_tree *tree, ooc_purpose purpose)
{
    /* threads transfer side by side: their share of the elapsed time */
    const double share = 1.0 / static_cast<double>(tree->threads);
    if (purpose == ooc_purpose::factorize) {
        request->state->written_factor = tree->write_bytes;
        request->state->read_factor = tree->read_bytes;
        request->stats->write_factor_seconds = tree->write_seconds * share;
        request->stats->read_factor_seconds = tree->read_seconds * share;
    } else {
        request->state->read_solve = tree->read_bytes;
        request->stats->read_solve_seconds = tree->read_seconds * share;
    }
}

} // namespace

int64_t ooc_prepare(const ooc_request *request)
{
    ooc_tree *tree = request->state->tree_link;
    if (tree == nullptr) tree = make_tree(request);
    if (tree == nullptr) return -2;
    request->state->tree_link = tree;
    ooc_file_set *set = set_of(tree, request->matrix_number);
    return set == nullptr ? -2 : make_files(request, tree, set);
}

const block_pager *ooc_open(const ooc_request *request, ooc_purpose purpose, void *window_l, int64_t entries_l, void *window_u,
                            int64_t entries_u)
{
    ooc_tree *tree = request->state->tree_link;
    ooc_file_set *set = tree == nullptr ? nullptr : set_of(tree, request->matrix_number);
    if (set == nullptr) {
        request->state->stage_error = -2;
        return nullptr;
    }
    tree->structure = *request->structure;
    tree->current = set;
    const int64_t fault = purpose == ooc_purpose::factorize ? make_files(request, tree, set) : find_files(request, tree, set);
    if (fault != 0) return nullptr;
    bind_windows(tree, window_l, entries_l, window_u, entries_u);
    count_threads(tree, request->threads);
    start_pages(tree, purpose, request->matrix_number);
    return &tree->pager;
}

int64_t ooc_factor_threads(const ooc_request *request)
{
    return request->state->tree_link->threads;
}

int64_t ooc_close(const ooc_request *request, ooc_purpose purpose)
{
    ooc_tree *tree = request->state->tree_link;
    if (purpose == ooc_purpose::factorize && tree->fault == 0) ooc_flush(tree);
    ooc_settle(tree);
    publish_transfers(request, tree, purpose);
    if (tree->fault != 0) {
        report(request, tree->fault_message, tree->fault, ooc_error_data);
        if (purpose == ooc_purpose::factorize) ooc_remove_files(tree, tree->current, false); /* gives the space back */
    } else {
        tree->warm_number = request->matrix_number;
    }
    int32_t message = 0, error = 0;
    if (request->state->files_open == 0 && tree->current->open) error = ooc_close_files(tree, tree->current, &message);
    if (error == 0) return tree->fault != 0 ? ooc_error_data : 0;
    tree->warm_number = 0;
    if (purpose == ooc_purpose::solve && request->message_flag != 0) service_print_message(0, message, 0);
    return report(request, message_ooc_close_error, error, ooc_error_open);
}

void ooc_delete(ooc_state *state, int64_t matrix_number)
{
    ooc_tree *tree = state->tree_link;
    if (tree == nullptr) return;
    const bool keep = state->files_open == 0;
    bool factors = false;
    for (int64_t i = 0; i < tree->set_count; ++i) {
        factors = factors || tree->sets[i].exists;
        if (matrix_number == 0 || matrix_number == i + 1) ooc_remove_files(tree, &tree->sets[i], keep);
    }
    if (matrix_number == tree->warm_number) tree->warm_number = 0;
    if (matrix_number != 0) return;
    if (!keep || !factors) ooc_remove_index_files(tree); /* index arrays without factors are of no use */
    free_tree(tree);
    state->tree_link = nullptr;
}
