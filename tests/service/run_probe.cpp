#include "run_probe.h"

#include <cstdio>
#include <sys/wait.h>

static std::string quoted(const std::string &text)
{
    std::string result(1, '\'');
    for (const char c : text) {
        if (c == '\'') result.append("'\\'"); /* a quote closes, stands alone, and opens again */
        result.push_back(c);
    }
    result.push_back('\'');
    return result;
}

probe_result run_probe(const std::string &program, const std::vector<std::string> &environment, const std::string &arguments,
                       const std::string &folder)
{
    std::string command;
    if (!folder.empty()) command.append("cd ").append(quoted(folder)).append(" && ");
    command.append("exec env -i TSAN_OPTIONS=ignore_noninstrumented_modules=1");
    for (const std::string &setting : environment) command.append(" ").append(quoted(setting));
    command.append(" ").append(quoted(program)).append(" ").append(arguments);
    probe_result result = {-1, ""};
    std::FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return result;
    char piece[4096];
    for (std::size_t got; (got = std::fread(piece, 1, sizeof piece, pipe)) > 0;) result.output.append(piece, got);
    const int status = pclose(pipe);
    if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
    return result;
}

std::string value_of(const std::string &output, const std::string &key)
{
    const std::string padded = std::string(" ").append(output).append(" ");
    const std::size_t at = padded.find(std::string(" ").append(key).append("="));
    if (at == std::string::npos) return "";
    const std::size_t begin = at + key.size() + 2;
    return padded.substr(begin, padded.find_first_of(" \n", begin) - begin);
}
