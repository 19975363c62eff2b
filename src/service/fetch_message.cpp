#include "service/message_catalogue.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include "platform/platform.h"

static std::atomic<int32_t> catalogue_load_pending{1};
static std::atomic<void *> catalogue_module{nullptr}; /* null: built-in texts serve */

static message_view whole_text(const char *text)
{
    return {text, static_cast<int64_t>(std::strlen(text))};
}

/* Look once for the module of the thread's locale; it stays open for the process, and a failure is not tried again. */
static void load_module()
{
    char path[64];
    (void)std::snprintf(path, sizeof path, "%lu/%s", static_cast<unsigned long>(platform_locale_number()), platform_message_module);
    catalogue_module.store(platform_message_open(path), std::memory_order_release);
}

message_view fetch_message(int32_t number, int32_t argument_count)
{
    if (catalogue_load_pending.load(std::memory_order_relaxed) != 0 && catalogue_load_pending.exchange(0) != 0) load_module();
    if (number < 0 || number >= message_count) return {"", 0};
    const message_view built_in = whole_text(message_catalogue.row[number].text);
    void *module = catalogue_module.load(std::memory_order_acquire);
    if (module == nullptr) return built_in;
    const char *translated = platform_message_fetch(module, number);
    if (translated == nullptr) return built_in;
    message_view text = whole_text(translated);
    if (text.length < 2 || text.begin[text.length - 2] != '\r' || text.begin[text.length - 1] != '\n') return built_in;
    text.length -= 2;
    if (argument_count > 0 && !same_directives(text, built_in)) return built_in;
    return text;
}
