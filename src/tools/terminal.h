// The terminal that a live view draws on, and the signals that end it.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tools/text_table.h"

// How wide and whether in colour: the terminal's width, and 0 and no colour when the descriptor is
// none. NO_COLOR in the environment, when not empty, and TERM=dumb switch colours off.
drawing drawing_of(int fd);

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

    // Waits for the time given. Returns false when the view is to end: SIGINT, SIGTERM, SIGHUP, or
    // nobody reads what it prints. A changed terminal size ends the wait early.
    bool wait(std::chrono::milliseconds time);

  private:
    void enter();
    void leave();
    void stop_and_resume();
    bool terminal_;
    bool broken_ = false;
};
