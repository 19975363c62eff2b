/* The commands of the host, one file each. A function adds its command to the program; when the command runs it stores its exit status:
   0, or 1 after a message on the standard error (solve: 2 when the backward error is too large). */
#pragma once

namespace CLI
{
class App;
}

void add_info_command(CLI::App *program, int *status);
void add_multiply_command(CLI::App *program, int *status);
void add_solve_command(CLI::App *program, int *status);
