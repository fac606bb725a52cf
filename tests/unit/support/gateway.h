// A gateway of a test's own: the host platform with its own file of values, log and journal, and clean
// fixed places (files, segment, semaphore). Derive fixtures from GatewayTest; it refuses to run outside the
// box.
#pragma once

#include <cstddef>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

struct LogEntry {
    std::string severity; // "fatal", "alert", "error", "info", "debug", or a number
    std::string text;     // as the program logged it: escapes undone, a trailing newline still there
};

// The values that every test starts with (see default_values in gateway.cpp):
//   base MAC 00:11:22:33:44:55, eRouter ..:56, MTA ..:57, cable modem ..:58, board mode 0
//   network 1: l2sd0.2  192.168.0.1/24  pool .10-.200  fd00:2::/64  lan 2  routed
//   network 2: l2sd0.3  192.168.1.1/24  pool .10-.200  fd00:3::/64  lan 3  routed
//   SSID 1 in LAN group 1, SSID 2 in LAN group 2, no station anywhere
//   all switch ports up, no MAC learned by either switch, no flap list settings, no failure
class GatewayTest : public testing::Test {
  protected:
    // A derived SetUp or TearDown calls these. SetUp fails fatally outside the box.
    void SetUp() override;
    void TearDown() override;
    ~GatewayTest() override;

    // --- values: written at once, seen by the next platform call ---
    void set(const std::string &key, const std::string &value); // the key's only line
    void set(const std::string &key, long long value);          // the same with a number
    void add(const std::string &key, const std::string &value); // one more line (keys that repeat)
    void unset(const std::string &key);                         // no line with that key
    void fail(const std::string &call, long long result);       // the call returns `result`, does nothing
    void succeed(const std::string &call);                      // takes a fail() back
    void learn(const std::string &mac, unsigned port);          // the external switch has the MAC on a port
    void write_values(const std::string &text);                 // the file's whole text, until the next set()

    // --- log: whole messages, exact, a "\n" at the end of a message included ---
    std::vector<LogEntry> log_entries() const;
    std::vector<std::string> log_lines() const; // the texts only
    bool logged(const std::string &text) const;
    size_t logged_count(const std::string &text) const;
    size_t logged_containing(const std::string &part) const; // number of messages that contain it
    void clear_log();

    // --- journal of calls with an effect on the outside: lines as they stand in the file ---
    std::vector<std::string> journal_lines() const;
    std::vector<std::string> journal_lines(const std::string &prefix) const; // only those that begin so
    void clear_journal();

    // --- places of this test ---
    std::string directory() const { return directory_; } // fresh, removed afterwards
    std::string values_path() const { return directory_ + "/gateway.conf"; }
    std::string log_path() const { return directory_ + "/log"; }
    std::string journal_path() const { return directory_ + "/journal"; }

  private:
    void save_values();

    std::string directory_;
    std::vector<std::pair<std::string, std::string>> values_;
    int lock_ = -1; // keeps other test processes of this box waiting while the fixed places are in use
};

// --- files ---
void write_file(const std::string &path, const std::string &text); // whole; makes missing directories
std::string read_file(const std::string &path);                    // "" when missing
bool file_exists(const std::string &path);
std::vector<std::string> read_lines(const std::string &path); // without their newlines

// Undoes the escapes of log and journal texts: \n \t \r \\ \" \xNN.
std::string unescape(const std::string &text);

// Waits until the condition holds, at most `milliseconds`. Returns whether it held. A test that passes never
// waits that long, however loaded the machine is.
template <typename Condition> bool wait_until(Condition condition, int milliseconds = 30000);

void sleep_milliseconds(int milliseconds);

template <typename Condition> bool wait_until(Condition condition, int milliseconds) {
    constexpr int step = 5;
    for (int waited = 0; waited < milliseconds; waited += step) {
        if (condition())
            return true;
        sleep_milliseconds(step);
    }
    return condition();
}
