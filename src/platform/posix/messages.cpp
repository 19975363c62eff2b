#include "platform/platform.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <nl_types.h>

/* Locale numbers as the translators of message modules use them. A row with a territory stands before its language's general row. */
struct locale_row {
    const char *name; /* beginning of a locale name */
    uint32_t number;
};
static constexpr uint32_t default_locale = 1033;
static constexpr locale_row locale_rows[] = {
    {"en_GB", 2057}, {"en", 1033},    {"de_AT", 3079}, {"de_CH", 2055}, {"de", 1031}, {"fr_CA", 3084}, {"fr", 1036},
    {"es_MX", 2058}, {"es", 3082},    {"it", 1040},    {"pt_BR", 1046}, {"pt", 2070}, {"nl", 1043},    {"sv", 1053},
    {"da", 1030},    {"fi", 1035},    {"nb", 1044},    {"pl", 1045},    {"cs", 1029}, {"hu", 1038},    {"ru", 1049},
    {"tr", 1055},    {"zh_TW", 1028}, {"zh", 2052},    {"ja", 1041},    {"ko", 1042},
};

static bool names_no_language(const char *name)
{
    return name[0] == '\0' || std::strcmp(name, "C") == 0 || std::strncmp(name, "C.", 2) == 0 || std::strcmp(name, "POSIX") == 0;
}

/* Name of the user's message locale: that of the program if it chose one, else what the environment asks for. */
static const char *message_locale_name()
{
    const char *chosen = std::setlocale(LC_MESSAGES, nullptr);
    if (chosen != nullptr && !names_no_language(chosen)) return chosen;
    static const char *const variables[] = {"LC_ALL", "LC_MESSAGES", "LANG"};
    for (const char *variable : variables) {
        const char *value = std::getenv(variable);
        if (value != nullptr && value[0] != '\0') return value;
    }
    return "";
}

uint32_t platform_locale_number()
{
    const char *name = message_locale_name();
    for (const locale_row &row : locale_rows) {
        if (std::strncmp(name, row.name, std::strlen(row.name)) == 0) return row.number;
    }
    return default_locale;
}

void *platform_message_open(const char *path)
{
    nl_catd module = catopen(path, 0);
    return module == reinterpret_cast<nl_catd>(-1) ? nullptr : module; // NOLINT: the value that catopen is documented to return
}

const char *platform_message_fetch(void *module, int32_t number)
{
    static const char missing[] = "";
    const char *text = catgets(module, NL_SETD, number, missing);
    return text == missing ? nullptr : text;
}
