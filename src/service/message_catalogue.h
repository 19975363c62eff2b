/* The catalogue of texts and what the two message routines share. Private to this folder, and open to its tests. */
#pragma once

#include <cstdarg>
#include <cstdint>

#include "service/message_numbers.h"

struct catalogue_row {
    int32_t number;   /* the row's own place */
    int32_t level;    /* 1 plain text, 2 warning, 4 error or other library text; printing does not consult it */
    const char *text; /* built-in format text; empty for rows of other domains */
};
struct catalogue {
    catalogue_row row[message_count]; /* row N is message N */
};
extern const catalogue message_catalogue;

/* A stretch of text without an end mark. */
struct message_view {
    const char *begin;
    int64_t length;
};

inline constexpr int64_t message_limit = 512;                     /* a text may be one character longer */
inline constexpr int64_t message_buffer_size = message_limit + 2; /* longest text that may be printed, and its end mark */

/* Text of a message, from the module of translated texts when there is one, else built in; empty for a number that is no row.
   A translation is taken only when it ends in carriage return and line feed, which are cut off, and, for argument_count above 0, when it
   reads the same arguments as the built-in text. The first call looks for the module. number: not 0. */
message_view fetch_message(int32_t number, int32_t argument_count);

/* Expand the directives of text, at most argument_count of them; a directive beyond that count, or one that is not understood, is left as
   it stands, so nothing reads arguments that are not there. in text; argument_count; arguments, of the types that the directives name
   out buffer[size], cut and closed with an end mark. Returns the length of the whole expansion. */
int64_t expand_message(message_view text, int32_t argument_count, va_list arguments, char *buffer, int64_t size);

/* True when both texts take arguments of the same types in the same order. */
bool same_directives(message_view left, message_view right);
