// Where the fields of a TR-069 event stand.
#pragma once

#include <cstddef>

// Offsets in the payload; the body starts at 10.
constexpr size_t common_tr69_format_at = 8;
constexpr size_t common_tr69_code_at = 9;
constexpr size_t common_tr69_body_at = 10;
constexpr size_t common_tr69_flag_at = common_tr69_body_at + 200;
// The body's last two bytes and what follows the body.
constexpr size_t common_tr69_tail_at = common_tr69_body_at + 338;

struct common_tr69_field {
    const char *name;
    size_t name_length;
    size_t at; // in the body
    size_t size;

    template <size_t N>
    constexpr common_tr69_field(const char (&text)[N], size_t where, size_t room)
        : name(text), name_length(N - 1), at(where), size(room) {}
};

constexpr common_tr69_field common_tr69_mac = {"mac", 0, 20};
constexpr common_tr69_field common_tr69_addresses[] = {
    {"ipv4", 28, 16}, {"ipv6", 44, 46}, {"ll", 90, 46}, {"host", 136, 64}};
constexpr common_tr69_field common_tr69_identity[] = {
    {"oui", 201, 7}, {"serial", 208, 65}, {"class", 273, 65}};
