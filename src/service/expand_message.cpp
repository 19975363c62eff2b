#include "service/message_catalogue.h"

#include <cstdio>
#include <cstring>

enum class argument_kind { none, narrow_integer, wide_integer, real, text, character, address };

/* Longest directive, in characters, and most digits of a width or precision, for what is taken for a directive. A text has no use for
   more, and a width of nine digits would keep the formatting busy for seconds. */
static constexpr int64_t directive_limit = 24;
static constexpr int32_t digits_limit = 3;

/* One directive "%..."; kind none is one that is not understood. */
struct directive {
    int64_t length; /* in characters, the per cent sign included */
    argument_kind kind;
};

static bool is_one_of(char c, const char *set)
{
    return c != '\0' && std::strchr(set, c) != nullptr;
}

/* Read the directive that begins at text.begin[at], a per cent sign that no second one follows. */
static directive read_directive(message_view text, int64_t at)
{
    int64_t p = at + 1;
    const auto next = [&] { return p < text.length ? text.begin[p] : '\0'; };
    while (is_one_of(next(), "-+ #0")) ++p;
    int32_t width_digits = 0, precision_digits = 0;
    for (; is_one_of(next(), "0123456789"); ++p) ++width_digits;
    if (next() == '.') {
        ++p;
        for (; is_one_of(next(), "0123456789"); ++p) ++precision_digits;
    }
    int halves = 0, longs = 0;
    for (; next() == 'h'; ++p) ++halves;
    for (; next() == 'l'; ++p) ++longs;
    const char conversion = next();
    const int64_t length = p + 1 - at;
    const directive not_understood = {1, argument_kind::none};
    if (length > directive_limit || width_digits > digits_limit || precision_digits > digits_limit || halves > 2 || longs > 2 ||
        (halves > 0 && longs > 0))
        return not_understood;
    if (is_one_of(conversion, "diuxXo")) return {length, longs > 0 ? argument_kind::wide_integer : argument_kind::narrow_integer};
    if (halves > 0) return not_understood;
    if (is_one_of(conversion, "fFeEgG")) return {length, argument_kind::real};
    if (longs > 0) return not_understood;
    if (conversion == 's') return {length, argument_kind::text};
    if (conversion == 'c') return {length, argument_kind::character};
    if (conversion == 'p') return {length, argument_kind::address};
    return not_understood;
}

/* Position of the next directive that takes an argument, from position at; text.length when there is none. */
static int64_t next_directive(message_view text, int64_t at, directive *found)
{
    while (at < text.length) {
        if (text.begin[at] != '%') {
            ++at;
        } else if (at + 1 < text.length && text.begin[at + 1] == '%') {
            at += 2;
        } else {
            *found = read_directive(text, at);
            if (found->kind != argument_kind::none) return at;
            at += found->length;
        }
    }
    *found = {0, argument_kind::none};
    return text.length;
}

bool same_directives(message_view left, message_view right)
{
    int64_t at_left = 0, at_right = 0;
    directive in_left{}, in_right{};
    do {
        at_left = next_directive(left, at_left, &in_left) + in_left.length;
        at_right = next_directive(right, at_right, &in_right) + in_right.length;
    } while (in_left.kind == in_right.kind && in_left.kind != argument_kind::none);
    return in_left.kind == in_right.kind;
}

/* Where the expansion goes: what does not fit is counted and dropped. */
struct expansion {
    char *buffer;
    int64_t size;
    int64_t length; /* of the whole expansion so far */
};

static void append(expansion *out, const char *piece, int64_t length)
{
    const int64_t room = out->size - 1 - out->length;
    if (room > 0) std::memcpy(out->buffer + out->length, piece, static_cast<std::size_t>(length < room ? length : room));
    out->length += length;
}

static constexpr int64_t piece_size = message_buffer_size; /* a longer piece passes every limit; only its length still matters */

/* Append one value, formatted by a directive of the kind that value_t belongs to. */
template <typename value_t>
static void append_value(expansion *out, const char *directive, value_t value)
{
    char piece[piece_size];
    const int length = std::snprintf(piece, sizeof piece, directive, value);
    if (length < 0) return;
    append(out, piece, length < piece_size ? length : piece_size - 1);
    if (length >= piece_size) out->length += length - (piece_size - 1);
}

int64_t expand_message(message_view text, int32_t argument_count, va_list arguments, char *buffer, int64_t size)
{
    expansion out = {buffer, size, 0};
    va_list rest;
    va_copy(rest, arguments);
    int64_t at = 0;
    for (int32_t taken = 0; taken < argument_count; ++taken) {
        directive found{};
        const int64_t place = next_directive(text, at, &found);
        for (; at < place; ++at) {
            append(&out, text.begin + at, 1);
            if (text.begin[at] == '%' && at + 1 < place && text.begin[at + 1] == '%') ++at;
        }
        if (found.kind == argument_kind::none) break;
        char specification[directive_limit + 1];
        std::memcpy(specification, text.begin + place, static_cast<std::size_t>(found.length));
        specification[found.length] = '\0';
        at = place + found.length;
        switch (found.kind) {
        case argument_kind::narrow_integer:
            append_value(&out, specification, va_arg(rest, int));
            break;
        case argument_kind::wide_integer:
            append_value(&out, specification, va_arg(rest, int64_t));
            break;
        case argument_kind::real:
            append_value(&out, specification, va_arg(rest, double));
            break;
        case argument_kind::character:
            append_value(&out, specification, va_arg(rest, int));
            break;
        case argument_kind::address:
            append_value(&out, specification, va_arg(rest, void *));
            break;
        default: {
            const char *value = va_arg(rest, const char *);
            append_value(&out, specification, value != nullptr ? value : "(null)");
        }
        }
    }
    va_end(rest);
    for (; at < text.length; ++at) {
        append(&out, text.begin + at, 1);
        if (text.begin[at] == '%' && at + 1 < text.length && text.begin[at + 1] == '%') ++at;
    }
    if (size > 0) buffer[out.length < size ? out.length : size - 1] = '\0';
    return out.length;
}
