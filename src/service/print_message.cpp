#include "service/service.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "service/message_catalogue.h"

/* Expanded text of a message. out buffer[message_buffer_size], used when the text has arguments; the view may be longer than the buffer
   holds, and then only its length is good. */
static message_view expanded_text(int32_t number, int32_t argument_count, va_list arguments, char *buffer)
{
    const message_view text = fetch_message(number, argument_count);
    if (argument_count <= 0) return text;
    return {buffer, expand_message(text, argument_count, arguments, buffer, message_buffer_size)};
}

[[noreturn]] static void stop_on_overflow(int32_t number, int64_t length)
{
    std::printf("\nWKL INTERNAL ERROR: message buffer overflow.");
    (void)std::fflush(stdout);
    std::printf("\n       Message N %d   Lenght: %d   Buffer size: %d\n", number, static_cast<int>(length - 1),
                static_cast<int>(message_limit));
    (void)std::fflush(stdout);
    std::exit(8);
}

int32_t service_print_message(int32_t reserved, int32_t number, int32_t argument_count, ...)
{
    (void)reserved;
    if (number == message_line_end) {
        (void)std::fputc('\n', stdout);
        return 0;
    }
    char buffer[message_buffer_size];
    va_list arguments;
    va_start(arguments, argument_count);
    const message_view text = expanded_text(number, argument_count, arguments, buffer);
    va_end(arguments);
    if (text.length - 1 > message_limit) stop_on_overflow(number, text.length);

    /* The text counts as a format once more, one without arguments: a doubled per cent sign prints once, and any directive stays as it
       stands. Text and line end go out in one piece, so that lines of two threads do not mix. */
    char line[message_buffer_size];
    std::size_t length = 0;
    for (int64_t at = 0; at < text.length; ++at) {
        line[length++] = text.begin[at];
        if (text.begin[at] == '%' && at + 1 < text.length && text.begin[at + 1] == '%') ++at;
    }
    line[length++] = '\n';
    (void)std::fwrite(line, 1, length, stdout);
    (void)std::fflush(nullptr);
    return 0;
}

const char *service_message_text(int32_t number, int32_t argument_count, ...)
{
    static thread_local char buffer[message_buffer_size];
    buffer[0] = '\0';
    if (number == message_line_end) return buffer;
    va_list arguments;
    va_start(arguments, argument_count);
    const message_view text = expanded_text(number, argument_count, arguments, buffer);
    va_end(arguments);
    if (argument_count <= 0) {
        const int64_t length = text.length < message_buffer_size ? text.length : message_buffer_size - 1;
        std::memcpy(buffer, text.begin, static_cast<std::size_t>(length));
        buffer[length] = '\0';
    }
    return buffer;
}
