#include "market_lines.h"

#include <cstring>

/* Move the unread part to the front and append more text. False when nothing came. */
static bool refill(market_lines *lines)
{
    std::memmove(lines->buffer.data(), lines->buffer.data() + lines->begin, lines->end - lines->begin);
    lines->end -= lines->begin;
    lines->begin = 0;
    if (lines->end == lines->buffer.size()) {
        lines->failure = "line too long";
        return false;
    }
    const int64_t got = lines->read(lines->source, lines->buffer.data() + lines->end, lines->buffer.size() - lines->end);
    if (got < 0) lines->failure = "read error or damaged compressed data";
    if (got <= 0) return false;
    lines->end += static_cast<size_t>(got);
    return true;
}

bool next_line(market_lines *lines, std::string_view *line)
{
    size_t searched = 0; /* bytes after begin that hold no line end */
    for (;;) {
        const char *start = lines->buffer.data() + lines->begin;
        const size_t unread = lines->end - lines->begin;
        const void *found = unread > searched ? std::memchr(start + searched, '\n', unread - searched) : nullptr;
        if (found != nullptr) {
            const size_t length = static_cast<size_t>(static_cast<const char *>(found) - start);
            *line = std::string_view(start, length);
            lines->begin += length + 1;
            break;
        }
        searched = unread;
        if (refill(lines)) continue;
        if (lines->failure != nullptr) {
            ++lines->number;
            return false;
        }
        if (lines->begin == lines->end) return false;
        *line = std::string_view(lines->buffer.data() + lines->begin, lines->end - lines->begin);
        lines->begin = lines->end;
        break;
    }
    ++lines->number;
    if (!line->empty() && line->back() == '\r') line->remove_suffix(1);
    return true;
}
