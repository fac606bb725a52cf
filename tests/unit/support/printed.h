// What a test prints on standard output, read back while it goes on printing.
#pragma once

#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "support/gateway.h"

// Sends standard output to a file for as long as it lives.
class Printed {
  public:
    explicit Printed(const std::string &path) : path_(path) {
        fflush(stdout);
        saved_ = dup(STDOUT_FILENO);
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
        dup2(file, STDOUT_FILENO);
        close(file);
    }
    ~Printed() {
        fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }
    Printed(const Printed &) = delete;
    Printed &operator=(const Printed &) = delete;

    std::string text() const {
        fflush(stdout);
        return read_file(path_);
    }

  private:
    std::string path_;
    int saved_ = -1;
};
