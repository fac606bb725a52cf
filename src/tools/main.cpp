// hbsctl: the command line of gw_hostbase.
#include <iostream>
#include <unistd.h>

#include <hbs_msg.h>

#include "tools/command_tree.h"
#include "tools/terminal.h"

int main(int argc, char **argv) {
    session run = {.in = std::cin,
                   .out = std::cout,
                   .err = std::cerr,
                   .can_ask = isatty(STDIN_FILENO) != 0,
                   .socket_path = HBS_SOCKET_PATH,
                   .how = drawing_of(STDOUT_FILENO)};
    const exit_status status = run_command_line(run, std::vector<std::string>(argv + 1, argv + argc));
    std::cout.flush();
    return std::cout ? status : exit_failed;
}
