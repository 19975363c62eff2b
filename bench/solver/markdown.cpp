#include "markdown.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

bool markdown_replace(const std::string &path, const std::string &name, const std::string &text)
{
    std::ifstream in(path);
    std::stringstream whole;
    whole << in.rdbuf();
    std::string document = whole.str();
    const std::string first = "<!-- " + name + " -->\n", last = "<!-- end of " + name + " -->";
    const size_t begin = document.find(first), end = document.find(last);
    if (!in || begin == std::string::npos || end == std::string::npos || end < begin) {
        std::fprintf(stderr, "%s: no place for the table \"%s\"\n", path.c_str(), name.c_str());
        return false;
    }
    document.replace(begin + first.size(), end - begin - first.size(), text);
    std::ofstream out(path);
    out << document;
    out.close();
    return !out.fail();
}

std::string markdown_table(const bench_table &table)
{
    std::string text;
    const auto add_row = [&](const std::vector<std::string> &row) {
        text += "|";
        for (const std::string &cell : row) text += " " + cell + " |";
        text += "\n";
    };
    add_row(table.head);
    text += "|";
    for (size_t c = 0; c < table.head.size(); ++c) text += c == 0 ? " :-- |" : " --: |";
    text += "\n";
    for (const auto &row : table.rows) add_row(row);
    return text;
}

std::string machine_line()
{
    std::ifstream info("/proc/cpuinfo");
    std::string line, model = "unknown processor";
    while (std::getline(info, line)) {
        if (line.rfind("model name", 0) != 0) continue;
        model = line.substr(line.find(':') + 2);
        break;
    }
    double load[1] = {0};
    if (getloadavg(load, 1) < 1) load[0] = 0;
    const time_t now = time(nullptr);
    tm parts = {};
    char day[32] = "";
    if (gmtime_r(&now, &parts) != nullptr) std::strftime(day, sizeof day, "%Y-%m-%d", &parts);
    return "Measured " + std::string(day) + ", " + model + ", " + std::to_string(sysconf(_SC_NPROCESSORS_ONLN)) + " cores, load " +
           bench_number(load[0], 1) + " at the end.\n";
}
