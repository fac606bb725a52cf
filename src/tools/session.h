// What one run of hbsctl works with, and how it ends.
#pragma once

#include <iosfwd>
#include <stdexcept>
#include <string>

#include "tools/text_table.h"

enum exit_status {
    exit_ok = 0,
    exit_negative = 1,  // refused, nothing changed, not found, not confirmed, or differences found
    exit_usage = 2,     // the command line makes no sense
    exit_not_there = 3, // the daemon or its segment is not there
    exit_no_answer = 4, // no answer in time, or the database stayed locked
    exit_failed = 5     // anything else
};

struct session {
    std::istream &in;
    std::ostream &out;
    std::ostream &err;
    bool json = false;
    bool can_ask = false;       // `in` is a person's terminal
    bool yes = false;           // ask nothing
    bool force = false;         // send also what cannot be meant
    double answer_seconds = 10; // how long a command may take
    std::string socket_path;
    drawing how; // of tables on `out`
    exit_status status = exit_ok;
};

// Ends the run with this status and text on standard error.
struct run_error : std::runtime_error {
    exit_status status;
    run_error(exit_status s, const std::string &text) : std::runtime_error(text), status(s) {}
};
