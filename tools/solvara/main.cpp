/* solvara: the library at the command line. */
#include "commands.h"

#include <CLI/CLI.hpp>

int main(int argc, char **argv)
{
    CLI::App program("Sparse matrices in Matrix Market files (plain or gzipped): inspect, multiply and solve.", "solvara");
    int status = 0;
    program.require_subcommand(1);
    add_info_command(&program, &status);
    add_multiply_command(&program, &status);
    add_solve_command(&program, &status);
    CLI11_PARSE(program, argc, argv);
    return status;
}
