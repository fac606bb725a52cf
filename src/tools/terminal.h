// The terminal that a live view draws on, and the signals that end it.
#pragma once

#include <chrono>
#include <string>
#include <termios.h>
#include <vector>

#include "tools/text_table.h"

// How wide and whether in colour: the terminal's width, and 0 and no colour when the descriptor is
// none. NO_COLOR in the environment, when not empty, and TERM=dumb switch colours off.
drawing drawing_of(int fd);

class live_screen;

// Throws run_error when what the view printed could not be written.
void heed_write_error(const live_screen &screen);

// Takes the screen for a live view while it exists, and gives it back as it was.
class live_screen {
  public:
    // Draws on standard output when that is a terminal, no dumb one, and `draw` is set; otherwise prints
    // block after block.
    explicit live_screen(bool draw);
    ~live_screen();
    live_screen(const live_screen &) = delete;
    live_screen &operator=(const live_screen &) = delete;

    // Shows the lines, cut to the terminal's height.
    void show(const std::vector<std::string> &lines);

    // How many lines fit; 0: as many as there are.
    size_t height() const;

    // Waits for the time given. Returns false when the view is to end: SIGINT, SIGTERM, SIGHUP, or
    // nobody reads what it prints. A key and a changed terminal size end the wait early.
    bool wait(std::chrono::milliseconds time);

    // Why what it prints could not be written, an errno; 0: it could, or nobody reads it any more.
    int write_error() const { return write_error_; }

    // What was typed since it was asked last. Keys are taken where standard input is a terminal, too.
    std::string typed();

  private:
    void enter();
    void leave();
    void stop_and_resume();
    bool heed_signal();
    bool take_keys();
    bool terminal_;
    bool keys_ = false;
    bool broken_ = false;
    int write_error_ = 0;
    int signals_ = -1; // descriptor
    termios usual_ = {};
    std::string typed_;
};
