// What the access points of this machine say of one station now.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct station_entry {
    std::string device; // of the access point
    bool authorized = false;
    std::optional<int> signal;         // dBm
    std::optional<unsigned> inactive;  // milliseconds
    std::optional<unsigned> connected; // seconds
    std::optional<unsigned> received;  // rates, 100 kbit/s
    std::optional<unsigned> sent;
};

// Asks each access point whose control socket is in the directory. One that this user may not ask, or that
// does not answer within half a second, says nothing.
std::vector<station_entry> stations_now(const std::string &directory, const std::string &mac);

// None when the answer is of no such station.
std::optional<station_entry> parse_station(const std::string &answer, const std::string &mac,
                                           const std::string &device);

// "p-a: signal -43 dBm, inactive for 120 ms, ..."
std::string station_text(const station_entry &entry);
