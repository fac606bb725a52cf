// A NetBIOS look-up program of a test, found before the real one.
#pragma once

#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "support/gateway.h"

class NetbiosTest : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        set_answer("");
        setenv("PATH", (directory() + "/bin:/usr/bin:/bin").c_str(), 1);
    }

    // It notes its arguments and gives this answer at once.
    void set_answer(const std::string &text) {
        write_file(directory() + "/answer", text);
        const std::string program = directory() + "/bin/nbtscan";
        write_file(program, "#!/bin/sh\necho \"$# $*\" >> " + directory() + "/asked\ncat " + directory() +
                                "/answer\n");
        (void)chmod(program.c_str(), 0755);
    }
    std::vector<std::string> asked() const { return read_lines(directory() + "/asked"); }
};
