/* The files of one matrix number: names, making, closing, removing. A name is the prefix, the process, a serial number of the process and
   the file's number, so that no two sets ever meet. The index arrays are those of the analysis: the first kept set has their files, under
   its serial number, and further sets only lnz and unz. */
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <initializer_list>

#include "ooc/ooc_tree.h"
#include "service/message_numbers.h"

namespace
{

constexpr int64_t name_size = 1100, most_attempts = 1000;
constexpr platform_file no_file = -1;
std::atomic<int64_t> serial_numbers{0};

void name_file(const ooc_tree *tree, int64_t serial, int64_t number, char *name)
{
    (void)std::snprintf(name, name_size, "%s.%lld.%lld.%02lld", tree->path, static_cast<long long>(platform_process_id()),
                        static_cast<long long>(serial), static_cast<long long>(number));
}

int32_t create_file(const ooc_tree *tree, int64_t serial, int64_t number, platform_file *file)
{
    char name[name_size];
    name_file(tree, serial, number, name);
    return platform_file_create(name, file);
}

int32_t open_named(const ooc_tree *tree, int64_t serial, int64_t number, platform_file *file)
{
    char name[name_size];
    name_file(tree, serial, number, name);
    return platform_file_open(name, file);
}

void remove_name(const ooc_tree *tree, int64_t serial, int64_t number)
{
    char name[name_size];
    name_file(tree, serial, number, name);
    (void)platform_file_remove(name);
}

/* A set made anew takes its old serial number. A name that exists belongs to somebody else, a dead process perhaps: take the next one. */
int32_t create_first(const ooc_tree *tree, ooc_file_set *set)
{
    int32_t error = set->serial == 0 ? EEXIST : create_file(tree, set->serial, ooc_file_lnz, &set->file[0]);
    for (int64_t attempt = 0; error == EEXIST && attempt < most_attempts; ++attempt) {
        set->serial = ++serial_numbers;
        error = create_file(tree, set->serial, ooc_file_lnz, &set->file[0]);
    }
    return error;
}

int32_t write_index(const ooc_tree *tree, int64_t number, const ooc_index_array &array)
{
    platform_file file = no_file;
    int32_t error = create_file(tree, tree->index_serial, number, &file);
    if (error != 0) return error;
    error = platform_file_write(file, 0, array.data, 8 * array.words);
    const int32_t closing = platform_file_close(file);
    return error != 0 ? error : closing;
}

/* The files of the index arrays, once for an analysis. */
int32_t create_index_files(ooc_tree *tree, const ooc_request *request, const ooc_file_set *set)
{
    if (tree->index_serial != 0) return 0;
    tree->index_serial = set->serial;
    int32_t error = 0;
    for (int64_t number = 1; number <= ooc_file_count && error == 0; ++number) {
        const ooc_index_array &array = request->index[number - 1];
        if (number != ooc_file_lnz && number != ooc_file_unz && array.data != nullptr) error = write_index(tree, number, array);
    }
    if (error != 0) ooc_remove_index_files(tree);
    return error;
}

void remove_factor_names(const ooc_tree *tree, const ooc_file_set *set)
{
    for (const ooc_file_number number : {ooc_file_lnz, ooc_file_unz}) remove_name(tree, set->serial, number);
}

void no_files(ooc_file_set *set)
{
    for (platform_file &file : set->file) file = no_file;
    for (auto &ways : set->other)
        for (platform_file &other : ways) other = no_file;
}

void close_others(ooc_file_set *set)
{
    for (auto &ways : set->other)
        for (platform_file &other : ways) {
            if (other != no_file) (void)platform_file_close(other);
            other = no_file;
        }
}

void close_quietly(ooc_file_set *set)
{
    close_others(set);
    for (platform_file &file : set->file) {
        if (file != no_file) (void)platform_file_close(file);
        file = no_file;
    }
    set->open = false;
}

/* Where pages come and go, the system's memory of files would only cost copies, and one transfer at a time leaves the disk idle: two at a
   time of a megabyte or more bring 1.3 times as much; more than three at a time bring less again. */
void choose_transfers(const ooc_tree *tree, ooc_file_set *set)
{
    for (int64_t k = 0; k < tree->sides; ++k) {
        if (tree->side[k].natural) continue;
        platform_file_go_direct(set->file[k]);
        for (platform_file &other : set->other[k])
            if (platform_file_duplicate(set->file[k], &other) != 0) other = no_file;
    }
}

} // namespace

int32_t ooc_create_files(ooc_tree *tree, const ooc_request *request, ooc_file_set *set)
{
    const bool keep = request->state->files_open == 0;
    no_files(set);
    int32_t error = create_first(tree, set);
    if (error != 0) return error;
    set->exists = set->open = set->linked = true;
    if (tree->sides == 2) error = create_file(tree, set->serial, ooc_file_unz, &set->file[1]);
    if (error == 0) choose_transfers(tree, set);
    if (error == 0 && keep) error = create_index_files(tree, request, set);
    if (error == 0 && keep) return 0;
    /* the names go early: the system takes the files back when the process ends, in whatever way */
    remove_factor_names(tree, set);
    set->linked = false;
    if (error != 0) {
        close_quietly(set);
        set->exists = false;
    }
    return error;
}

int32_t ooc_reopen_files(const ooc_tree *tree, const ooc_request *request, ooc_file_set *set, int32_t *message)
{
    constexpr int32_t messages[] = {message_ooc_solve_open_lindx, message_ooc_solve_open_lnz, message_ooc_solve_open_unz};
    no_files(set);
    platform_file lindx = no_file;
    *message = messages[0];
    int32_t error = open_named(tree, tree->index_serial, ooc_file_lindx, &lindx);
    if (error != 0) return error;
    int64_t size = 0;
    error = platform_file_size(lindx, &size);
    (void)platform_file_close(lindx);
    if (error == 0 && size != 8 * request->index[ooc_file_lindx - 1].words) error = EIO;
    for (int64_t k = 0; k < tree->sides && error == 0; ++k) {
        *message = messages[k + 1];
        error = open_named(tree, set->serial, ooc_file_lnz + k, &set->file[k]);
    }
    if (error != 0) {
        close_quietly(set);
        return error;
    }
    set->open = true;
    choose_transfers(tree, set);
    return 0;
}

bool ooc_files_complete(const ooc_tree *tree, const ooc_file_set *set)
{
    for (int64_t k = 0; k < tree->sides; ++k) {
        int64_t size = -1;
        if (platform_file_size(set->file[k], &size) != 0 || size != tree->side[k].total) return false;
    }
    return true;
}

int32_t ooc_close_files(const ooc_tree *tree, ooc_file_set *set, int32_t *message)
{
    constexpr int32_t messages[] = {message_ooc_solve_close_lnz, message_ooc_solve_close_unz};
    int32_t error = 0;
    close_others(set);
    for (int64_t k = 0; k < tree->sides; ++k) {
        const int32_t one = platform_file_close(set->file[k]);
        set->file[k] = no_file;
        if (one == 0 || error != 0) continue;
        error = one;
        *message = messages[k];
    }
    set->open = false;
    return error;
}

void ooc_remove_files(const ooc_tree *tree, ooc_file_set *set, bool keep)
{
    if (!set->exists) return;
    if (set->open) close_quietly(set);
    if (set->linked && !keep) remove_factor_names(tree, set);
    set->exists = set->linked = false;
}

void ooc_remove_index_files(ooc_tree *tree)
{
    for (int64_t number = 1; number <= ooc_file_count && tree->index_serial != 0; ++number)
        if (number != ooc_file_lnz && number != ooc_file_unz) remove_name(tree, tree->index_serial, number);
    tree->index_serial = 0;
}
