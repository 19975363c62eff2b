#include "service/service.h"

#include <cstring>

#include "service/message_numbers.h"

static constexpr int32_t name_limit = 20;

void service_xerbla_default(const char *name, const int64_t *info, int32_t length)
{
    char local_name[name_limit + 1];
    const int32_t kept = length < 0 ? 0 : length < name_limit ? length : name_limit;
    std::memcpy(local_name, name, static_cast<std::size_t>(kept));
    local_name[kept] = '\0';
    service_print_message(0, message_line_end, 0);
    const auto code = static_cast<int32_t>(static_cast<uint64_t>(*info)); /* the low half, whatever the caller holds */
    switch (code) {
    case 1000:
        service_print_message(0, message_workspace, 1, local_name);
        return;
    case 1001:
        service_print_message(0, message_optional_parameters, 1, local_name);
        return;
    case message_coprocessor:
    case message_work_memory:
        service_print_message(0, code, 1, local_name);
        return;
    default:
        break;
    }
    if (code <= 0) {
        const auto condition = static_cast<int32_t>(0 - static_cast<uint32_t>(code)); /* the least value stays as it is */
        service_print_message(0, message_condition, 2, condition, local_name);
    } else {
        service_print_message(0, message_parameter, 2, code, local_name);
    }
}

int64_t service_check_null(const void *pointer, const char *name)
{
    if (pointer != nullptr) return 0;
    const int64_t info = message_work_memory;
    service_xerbla(name, &info, static_cast<int32_t>(std::strlen(name)));
    return 1;
}
