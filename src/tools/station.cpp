#include "tools/station.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <map>
#include <sstream>

#include "tools/command_client.h"
#include "tools/words.h"

namespace {

constexpr double patience = 0.5; // seconds

template <typename Number> std::optional<Number> number_of(const std::string &text) {
    Number number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

std::string megabits(unsigned rate) {
    return std::to_string(rate / 10) + "." + std::to_string(rate % 10) + " Mbit/s";
}

void add(std::vector<std::string> &parts, const std::string &before, const std::optional<unsigned> &number,
         const std::string &unit) {
    if (number)
        parts.push_back(before + std::to_string(*number) + unit);
}

} // namespace

std::optional<station_entry> parse_station(const std::string &answer, const std::string &mac,
                                           const std::string &device) {
    std::istringstream lines(answer);
    std::string line;
    std::getline(lines, line);
    const auto said = parse_mac(line);
    if (!said || mac_text(said->data()) != mac)
        return {};
    std::map<std::string, std::string> values;
    while (std::getline(lines, line))
        if (const size_t equals = line.find('='); equals != std::string::npos)
            values[line.substr(0, equals)] = line.substr(equals + 1);
    station_entry entry;
    entry.device = device;
    // Where hostapd tells no flags, whoever it lists is there.
    entry.authorized =
        values.count("flags") == 0 || values["flags"].find("[AUTHORIZED]") != std::string::npos;
    entry.signal = number_of<int>(values["signal"]);
    entry.inactive = number_of<unsigned>(values["inactive_msec"]);
    entry.connected = number_of<unsigned>(values["connected_time"]);
    entry.received = number_of<unsigned>(values["rx_rate_info"]);
    entry.sent = number_of<unsigned>(values["tx_rate_info"]);
    return entry;
}

std::vector<station_entry> stations_now(const std::string &directory, const std::string &mac) {
    std::vector<station_entry> found;
    std::vector<std::string> devices;
    std::error_code none;
    for (const auto &file : std::filesystem::directory_iterator(directory, none))
        if (file.is_socket(none))
            devices.push_back(file.path().filename());
    std::sort(devices.begin(), devices.end());
    for (const std::string &device : devices) {
        const std::filesystem::path socket = std::filesystem::path(directory) / device;
        const std::string answer = ask_in_words("STA " + mac, socket, patience).value_or("");
        if (const auto entry = parse_station(answer, mac, device))
            found.push_back(*entry);
    }
    return found;
}

std::string station_text(const station_entry &entry) {
    std::vector<std::string> parts;
    if (!entry.authorized)
        parts.emplace_back("not logged in");
    if (entry.signal)
        parts.push_back("signal " + std::to_string(*entry.signal) + " dBm");
    add(parts, "inactive for ", entry.inactive, " ms");
    add(parts, "connected for ", entry.connected, " s");
    if (entry.received)
        parts.push_back("receives from it at " + megabits(*entry.received));
    if (entry.sent)
        parts.push_back("sends to it at " + megabits(*entry.sent));
    return entry.device + (parts.empty() ? "" : ": ") + joined(parts, ", ");
}
