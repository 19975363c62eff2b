/* Lines of a text that comes piece by piece. */
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

/* Fills at most `size` bytes; returns how many, 0 at the end, negative after a failure. */
using market_read = int64_t(void *source, char *buffer, size_t size);

struct market_lines {
    market_read *read = nullptr;
    void *source = nullptr;
    std::vector<char> buffer = std::vector<char>(size_t{1} << 18); /* also the longest line */
    size_t begin = 0, end = 0;                                     /* unread part of the buffer */
    int64_t number = 0;                                            /* of the line returned last, from 1 */
    const char *failure = nullptr;                                 /* set when the text ends for a bad reason */
};

/* The next line without its end; false at the end of the text or after a failure. The view holds until the next call. */
bool next_line(market_lines *lines, std::string_view *line);
