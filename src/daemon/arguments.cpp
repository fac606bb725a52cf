#include "daemon/arguments.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr const char *USAGE = "Usage: gw_hostbase [--help | --version]\n";

constexpr int STATUS_USAGE = 2;

int print(const char *text) {
    return fputs(text, stdout) >= 0 && fflush(stdout) == 0 ? 0 : 1;
}

int print_help() {
    if (print(USAGE) != 0)
        return 1;
    return print(
        "\n"
        "Keeps the database of the gateway's LAN clients, in the foreground, until it is told to end.\n"
        "Without arguments it starts; only one can run.\n"
        "\n"
        "  --help     print this text and end\n"
        "  --version  print the version and end\n");
}

} // namespace

int hbs_answer_arguments(int count, char *const words[]) {
    if (count <= 1)
        return -1;
    if (count == 2 && strcmp(words[1], "--help") == 0)
        return print_help();
    if (count == 2 && strcmp(words[1], "--version") == 0)
        return print("gw_hostbase " HBS_VERSION "\n");
    (void)fputs(USAGE, stderr);
    return STATUS_USAGE;
}
