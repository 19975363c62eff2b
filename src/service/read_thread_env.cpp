#include "service/thread_record.h"

#include <cstring>

static constexpr int64_t value_size = 256; /* a longer value counts as absent */
static constexpr int32_t not_a_number = -1;

static bool is_one_of(char c, const char *set)
{
    return c != '\0' && std::strchr(set, c) != nullptr;
}

/* Number in a text of decimal digits only, held at the largest 32-bit value; not_a_number for any other text. */
static int32_t digits_value(const char *text, int64_t length)
{
    int64_t value = 0;
    for (int64_t i = 0; i < length; ++i) {
        if (text[i] < '0' || text[i] > '9') return not_a_number;
        value = value * 10 + (text[i] - '0');
        if (value > INT32_MAX) value = INT32_MAX;
    }
    return static_cast<int32_t>(value);
}

/* The same for a thread count, where a text that is empty or no number means one thread. */
static int32_t count_value(const char *text, int64_t length)
{
    const int32_t value = digits_value(text, length);
    return length == 0 || value == not_a_number ? 1 : value;
}

/* The first source of a setting wins. */
static void set_if_open(std::atomic<int32_t> *field, int32_t value)
{
    if (value >= 1 && field->load() < 0) field->store(value);
}

static std::atomic<int32_t> *field_of_key(thread_record *record, const char *key, int64_t length)
{
    struct key_row {
        const char *name[2];
        std::atomic<int32_t> *field;
    };
    const key_row rows[] = {{{"WKL_ALL", "WKL_DOMAIN_ALL"}, &record->general_threads},
                            {{"WKL_BLAS", "WKL_DOMAIN_BLAS"}, &record->domain[domain_blas - 1]},
                            {{"WKL_FFT", "WKL_DOMAIN_FFT"}, &record->domain[domain_fft - 1]},
                            {{"WKL_VML", "WKL_DOMAIN_VML"}, &record->domain[domain_vml - 1]},
                            {{"WKL_SOLVARA", "WKL_DOMAIN_SOLVARA"}, &record->domain[domain_solver - 1]}};
    const auto bytes = static_cast<std::size_t>(length);
    for (const key_row &row : rows) {
        for (const char *name : row.name) {
            if (std::strlen(name) == bytes && std::memcmp(key, name, bytes) == 0) return row.field;
        }
    }
    return nullptr;
}

/* Read "key = value" entries; an empty key ends the list. */
static void read_domain_list(thread_record *record, const char *at)
{
    while (true) {
        while (is_one_of(*at, " ,;:\"'")) ++at;
        const char *key = at;
        while (*at != '\0' && !is_one_of(*at, "=\"' ")) ++at;
        const int64_t key_length = at - key;
        if (key_length == 0) return;
        while (is_one_of(*at, " =")) ++at;
        const char *value = at;
        while (*at != '\0' && !is_one_of(*at, " ,;:\"'")) ++at;
        std::atomic<int32_t> *field = field_of_key(record, key, key_length);
        if (field != nullptr) set_if_open(field, count_value(value, at - value));
    }
}

/* Dynamic threading is on unless the word is exactly FALSE or false. */
static int32_t dynamic_value(const char *text)
{
    static const char skipped[] = " \"'";
    text += std::strspn(text, skipped);
    const std::size_t length = std::strcspn(text, skipped);
    const bool off = length == 5 && (std::memcmp(text, "FALSE", 5) == 0 || std::memcmp(text, "false", 5) == 0);
    return off ? 0 : 1;
}

void service_read_thread_env(thread_record *record)
{
    char value[value_size];
    int64_t length = service_environment("WKL_NUM_THREADS", value, value_size);
    if (length > 0) set_if_open(&record->general_threads, count_value(value, length));

    if (service_environment("WKL_DOMAIN_NUM_THREADS", value, value_size) > 0) read_domain_list(record, value);

    (void)service_environment("WKL_DYNAMIC", value, value_size);
    if (record->dynamic.load() == -1) record->dynamic.store(dynamic_value(value));

    length = service_environment("OMP_NUM_THREADS", value, value_size);
    if (length > 0) {
        const int32_t count = count_value(value, length);
        if (count >= 1) record->omp_env_threads.store(count);
    }

    length = service_environment("W_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", value, value_size);
    if (length > 0) {
        const int32_t count = digits_value(value, length);
        if (count >= 1) record->launcher_processes.store(count);
    }

    length = service_environment("W_MPI_THREAD_LEVEL", value, value_size);
    if (length > 0) {
        const int32_t level = digits_value(value, length);
        record->launcher_thread_level.store(level >= 0 && level <= 3 ? level : 0);
    }
}
