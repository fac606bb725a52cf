// The gateway of a test: where its files lie, what they hold at first, and how log and journal are read back.
#include "support/gateway.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <semaphore.h>
#include <sstream>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <thread>
#include <unistd.h>

#include <hbs_db.h>

namespace fs = std::filesystem;

namespace {

constexpr std::array<std::pair<const char *, const char *>, 26> default_values = {{
    {"db.array.70", "hex:001122334455"},
    {"db.array.110", "hex:001122334456"},
    {"db.array.197", "hex:001122334457"},
    {"production.cm_mac", "00:11:22:33:44:58"},
    {"nvm.byte.60", "0"},
    {"network.1.ifname", "l2sd0.2"},
    {"network.1.ipv4", "192.168.0.1/24"},
    {"network.1.pool", "192.168.0.10 192.168.0.200"},
    {"network.1.ipv6", "fd00:2::/64"},
    {"network.1.lan", "2"},
    {"network.1.routed", "1"},
    {"network.1.lease_time", "3600"},
    {"network.2.ifname", "l2sd0.3"},
    {"network.2.ipv4", "192.168.1.1/24"},
    {"network.2.pool", "192.168.1.10 192.168.1.200"},
    {"network.2.ipv6", "fd00:3::/64"},
    {"network.2.lan", "3"},
    {"network.2.routed", "1"},
    {"network.2.lease_time", "3600"},
    {"ssid.1.group", "1"},
    {"ssid.1.bridge", "l2sd0.2"},
    {"ssid.1.enabled", "1"},
    {"ssid.2.group", "2"},
    {"ssid.2.bridge", "l2sd0.3"},
    {"ssid.2.enabled", "1"},
    {"wifi.ssid.1.auth", "WPA2-Personal"},
}};

// Places with fixed names that the programs under test use; emptied, not removed.
constexpr std::array fixed_places = {"/var/tmp", "/nvram/8", "/nvram/8/dhcpd", "/var/lib/misc",
                                     "/var/lib/dibbler"};

// The box's stand-in for the DOCSIS bridge: the CPEs it knows, and the record of what was deleted from it.
constexpr std::array bridge_files = {"/proc/net/dbrctl/cpe", "/var/lib/hbs-host/deletecpe"};

void remove_segment() {
    key_t key = ftok(HBS_SHM_KEY_FILE, HBS_SHM_PROJECT_ID);
    if (key == -1)
        return;
    int segment = shmget(key, 0, 0);
    if (segment != -1)
        shmctl(segment, IPC_RMID, nullptr);
}

void empty_directory(const char *path) {
    std::error_code error;
    fs::create_directories(path, error);
    for (const auto &entry : fs::directory_iterator(path, error))
        fs::remove_all(entry.path(), error);
}

void clean_fixed_places() {
    remove_segment(); // its key comes from a file in /var/tmp
    sem_unlink(HBS_SEMAPHORE_NAME);
    for (const char *path : fixed_places)
        empty_directory(path);
    for (const char *path : bridge_files)
        if (fs::is_regular_file(path))
            std::ofstream(path, std::ios::trunc).flush();
}

int lock_fixed_places() {
    int lock = open("/tmp/hbs-tests.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (lock >= 0)
        flock(lock, LOCK_EX);
    return lock;
}

bool begins_with(const std::string &text, const std::string &prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

} // namespace

void GatewayTest::SetUp() {
    if (getenv("HBS_BOX") == nullptr)
        FAIL() << "This test empties /var/tmp, /nvram/8 and more: run it inside the box "
                  "(script/unit).";
    lock_ = lock_fixed_places();
    ASSERT_GE(lock_, 0);
    clean_fixed_places();
    char name[] = "/tmp/hbs-test-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(name));
    directory_ = name;
    values_.assign(default_values.begin(), default_values.end());
    save_values();
    setenv("HBS_HOST_CONF", values_path().c_str(), 1);
    setenv("HBS_HOST_LOG", log_path().c_str(), 1);
    setenv("HBS_HOST_JOURNAL", journal_path().c_str(), 1);
}

void GatewayTest::TearDown() {
    if (HasFailure() && !directory_.empty())
        std::cerr << "--- log\n" << read_file(log_path()) << "--- journal\n" << read_file(journal_path());
}

GatewayTest::~GatewayTest() {
    std::error_code error;
    if (!directory_.empty())
        fs::remove_all(directory_, error);
    if (lock_ >= 0)
        close(lock_);
}

// Replaced whole, so that no reader sees half of it.
void GatewayTest::write_values(const std::string &text) {
    std::string fresh = values_path() + ".new";
    write_file(fresh, text);
    fs::rename(fresh, values_path());
}

void GatewayTest::save_values() {
    std::string text;
    for (const auto &[key, value] : values_)
        text += key + " = " + value + "\n";
    write_values(text);
}

void GatewayTest::set(const std::string &key, const std::string &value) {
    std::erase_if(values_, [&](const auto &line) { return line.first == key; });
    add(key, value);
}

void GatewayTest::set(const std::string &key, long long value) {
    set(key, std::to_string(value));
}

void GatewayTest::add(const std::string &key, const std::string &value) {
    values_.emplace_back(key, value);
    save_values();
}

void GatewayTest::unset(const std::string &key) {
    std::erase_if(values_, [&](const auto &line) { return line.first == key; });
    save_values();
}

void GatewayTest::fail(const std::string &call, long long result) {
    set("fail." + call, result);
}

void GatewayTest::succeed(const std::string &call) {
    unset("fail." + call);
}

void GatewayTest::learn(const std::string &mac, unsigned port) {
    set("switch.mac." + mac, port);
}

std::vector<LogEntry> GatewayTest::log_entries() const {
    std::vector<LogEntry> entries;
    for (const std::string &line : read_lines(log_path())) {
        size_t blank = std::min(line.find(' '), line.size());
        size_t text = std::min(blank + 1, line.size());
        entries.push_back({line.substr(0, blank), unescape(line.substr(text))});
    }
    return entries;
}

std::vector<std::string> GatewayTest::log_lines() const {
    std::vector<std::string> texts;
    for (LogEntry &entry : log_entries())
        texts.push_back(std::move(entry.text));
    return texts;
}

bool GatewayTest::logged(const std::string &text) const {
    return logged_count(text) > 0;
}

size_t GatewayTest::logged_count(const std::string &text) const {
    auto lines = log_lines();
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), text));
}

size_t GatewayTest::logged_containing(const std::string &part) const {
    auto lines = log_lines();
    auto contains = [&](const std::string &line) { return line.find(part) != std::string::npos; };
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), contains));
}

void GatewayTest::clear_log() {
    write_file(log_path(), "");
}

std::vector<std::string> GatewayTest::journal_lines() const {
    return read_lines(journal_path());
}

std::vector<std::string> GatewayTest::journal_lines(const std::string &prefix) const {
    auto lines = journal_lines();
    std::erase_if(lines, [&](const std::string &line) { return !begins_with(line, prefix); });
    return lines;
}

void GatewayTest::clear_journal() {
    write_file(journal_path(), "");
}

void write_file(const std::string &path, const std::string &text) {
    std::error_code error;
    fs::create_directories(fs::path(path).parent_path(), error);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    ASSERT_FALSE(file.fail()) << "cannot write " << path;
}

std::string read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool file_exists(const std::string &path) {
    std::error_code error;
    return fs::exists(path, error);
}

std::vector<std::string> read_lines(const std::string &path) {
    std::vector<std::string> lines;
    std::istringstream text(read_file(path));
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

std::string unescape(const std::string &text) {
    static const std::string letters = "nrt";
    static const std::string meanings = "\n\r\t";
    std::string out;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        char letter = text[++i];
        size_t known = letters.find(letter);
        if (known != std::string::npos) {
            out += meanings[known];
        } else if (letter == 'x' && i + 2 < text.size()) {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += letter;
        }
    }
    return out;
}

void sleep_milliseconds(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
