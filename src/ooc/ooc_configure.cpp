/* Where temporary files go, how much core memory the factors may use, and whether the files survive: defaults, then the configuration
   file, then the environment, which always wins. */
#include "ooc/ooc.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "service/message_numbers.h"
#include "service/service.h"

namespace
{

constexpr int64_t text_size = 1000; /* bytes of a value, its end included */
constexpr int64_t line_size = 4096; /* a longer line is cut */

/* Settings that came from the environment, and so are not taken from the file. The swap size counts as a core size. */
struct fixed_settings {
    bool path, core_size, keep_file;
};

/* A decimal number at the head of a text, held within 32 bits; false leaves *value. */
bool parse_number(const char *text, int64_t *value)
{
    char *end = nullptr;
    const long long parsed = std::strtoll(text, &end, 10);
    if (end == text) return false;
    *value = parsed > INT32_MAX ? INT32_MAX : parsed < INT32_MIN ? INT32_MIN : parsed;
    return true;
}

bool text_from_environment(const char *name, int32_t message, int64_t msglvl, char *text)
{
    char value[text_size];
    if (service_environment(name, value, text_size) < 1) return false;
    std::memcpy(text, value, std::strlen(value) + 1);
    if (msglvl > 0) service_print_message(0, message, 1, text);
    return true;
}

bool number_from_environment(const char *name, int32_t message, int64_t msglvl, int64_t *number)
{
    char value[text_size];
    if (service_environment(name, value, text_size) < 1) return false;
    parse_number(value, number);
    if (msglvl > 0) service_print_message(0, message, 1, static_cast<int>(*number));
    return true;
}

/* The next line without its end; blank lines after it are taken along. False when nothing is left. A line at the end of the file counts
   with or without a line end. */
bool read_line(std::FILE *file, char *line)
{
    int64_t length = 0;
    int c = std::fgetc(file);
    if (c == EOF) return false;
    for (; c != EOF && c != '\n'; c = std::fgetc(file))
        if (length < line_size - 1) line[length++] = static_cast<char>(c);
    if (length > 0 && line[length - 1] == '\r') --length;
    line[length] = '\0';
    while (c == '\n') c = std::fgetc(file);
    if (c != EOF) std::ungetc(c, file);
    return true;
}

/* Key of a line in lower case: up to an equals sign or tab, cut at the first blank. */
void read_key(const char *text, char *key)
{
    int64_t length = 0;
    for (; text[length] != '\0' && std::strchr("=\t ", text[length]) == nullptr; ++length) {
        const char c = text[length];
        key[length] = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    key[length] = '\0';
}

/* Cut the next token of *rest, ended by blanks and equals signs; null when there is none. */
char *next_token(char **rest)
{
    char *token = *rest + std::strspn(*rest, "= ");
    if (*token == '\0') return nullptr;
    char *end = token + std::strcspn(token, "= ");
    *rest = *end == '\0' ? end : end + 1;
    *end = '\0';
    return token;
}

/* A path may hold blanks: its words are joined with one blank each. */
void join_tokens(char *token, char *rest, char *path)
{
    int64_t length = 0;
    for (bool first = true; token != nullptr; token = next_token(&rest), first = false) {
        if (!first && length < text_size - 1) path[length++] = ' ';
        for (const char *c = token; *c != '\0' && length < text_size - 1; ++c) path[length++] = *c;
    }
    path[length] = '\0';
}

/* *number is the last number parsed in this file, 0 at first: a value that is no number takes it. */
void apply_line(char *line, const fixed_settings &fixed, int64_t *number, char *path, ooc_state *state)
{
    char key[line_size];
    line[std::strcspn(line, "#")] = '\0';
    read_key(line, key);
    if (std::strchr(line, '=') == nullptr) return;
    char *rest = line;
    next_token(&rest); /* the key again */
    char *token = next_token(&rest);
    if (token == nullptr) return;
    if (std::strcmp(key, "wkl_solvara_ooc_path") == 0) {
        if (!fixed.path) join_tokens(token, rest, path);
        return;
    }
    const bool core = std::strcmp(key, "wkl_solvara_ooc_max_core_size") == 0, keep = std::strcmp(key, "wkl_solvara_ooc_keep_file") == 0;
    if (!(core && !fixed.core_size) && !(keep && !fixed.keep_file)) return;
    parse_number(token, number);
    (core ? state->max_core_size : state->files_open) = *number;
}

void read_configuration(const char *name, int64_t msglvl, const fixed_settings &fixed, char *path, ooc_state *state)
{
    std::FILE *file = std::fopen(name, "r+");
    if (file == nullptr) {
        if (msglvl > 0) service_print_message(0, message_ooc_cfg_not_opened, 1, name);
        return;
    }
    char line[line_size];
    int64_t number = 0;
    while (read_line(file, line)) apply_line(line, fixed, &number, path, state);
    std::fclose(file);
}

} // namespace

int64_t ooc_configure(char *path, ooc_state *state, int64_t msglvl)
{
    char folder[text_size] = ".", file_name[text_size] = "solvara_ooc.cfg", name[2 * text_size];
    std::strcpy(path, "ooc_temp");
    state->max_core_size = 2000;
    state->max_swap_size = 0;
    state->files_open = 1;

    fixed_settings fixed = {};
    text_from_environment("WKL_SOLVARA_OOC_CFG_PATH", message_ooc_env_cfg_path, msglvl, folder);
    text_from_environment("WKL_SOLVARA_OOC_CFG_FILE_NAME", message_ooc_env_cfg_file_name, msglvl, file_name);
    fixed.path = text_from_environment("WKL_SOLVARA_OOC_PATH", message_ooc_env_path, msglvl, path);
    fixed.core_size =
        number_from_environment("WKL_SOLVARA_OOC_MAX_CORE_SIZE", message_ooc_env_max_core_size, msglvl, &state->max_core_size);
    fixed.core_size |=
        number_from_environment("WKL_SOLVARA_OOC_MAX_SWAP_SIZE", message_ooc_env_max_swap_size, msglvl, &state->max_swap_size);
    fixed.keep_file = number_from_environment("WKL_SOLVARA_OOC_KEEP_FILE", message_ooc_env_keep_file, msglvl, &state->files_open);
    if (fixed.path && fixed.core_size && fixed.keep_file) return 0;

    std::snprintf(name, sizeof name, "%s/%s", folder, file_name);
    read_configuration(name, msglvl, fixed, path, state);
    return 0;
}
