/* Tables that stand in a document between two marks, <!-- name --> and <!-- end of name -->. */
#pragma once

#include <string>

#include "measure.h"

/* Replaces what stands between the marks of `name`; false, with a message on standard error, when file or marks are missing. */
bool markdown_replace(const std::string &path, const std::string &name, const std::string &text);

std::string markdown_table(const bench_table &table);

/* The processor, the number of cores and the load of the machine, and the day: the line that stands above every table. */
std::string machine_line();
