/* Runs the test host in an environment of the test's choice. */
#pragma once

#include <string>
#include <vector>

struct probe_result {
    int status; /* exit status, or -1 after a signal */
    std::string output;
};

/* in program path of the host; environment NAME=value, nothing else is passed on; arguments as for a shell; folder to run in, or empty. */
probe_result run_probe(const std::string &program, const std::vector<std::string> &environment, const std::string &arguments,
                       const std::string &folder = "");

/* Value of "key=" in the host's output; empty when it is not there. */
std::string value_of(const std::string &output, const std::string &key);
