// Why what was typed cannot be meant. Each gives a sentence without its full stop, or nothing.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/look.h"
#include "tools/requests.h"

using objection = std::optional<std::string>;

// The first that there is.
objection first_of(const std::vector<objection> &all);

objection to_device(const mac_bytes &mac);

// An address that no host can have, whatever the network.
objection to_host_address(const ipv4_bytes &address);
objection to_link_local(const ipv6_bytes &address);

// An IPv6 address that no server gives.
objection to_leased_address(const ipv6_bytes &address);
objection to_number(const char *what, uint32_t number, uint32_t least, uint32_t most);

// Whether static leases may be for clients of a network, by its number from 0.
bool has_fixed_addresses(unsigned network);

// A fixed address in network 0 for a device.
objection to_fixed_address(const look &now, const mac_bytes &mac, const ip_address &address);
objection to_static_lease(const look &now, const static_lease &lease);
objection to_clearing_lease(const look &now, const ip_address &address);

objection to_clearing_trust(const hbs_client &client, uint32_t action);

// A rule that a device is to get: by its instance (0: none given) in the table.
objection to_rule(const rule_values &rule);
objection to_instance(const look &now, const filter_request &request);

// A rule that a device is to lose.
objection to_clearing_rule(const look &now, const filter_request &request);

// Where none of a device's rules was named; `done` says in a word what is to be done to one.
objection to_unnamed_rule(const look &now, const filter_request &request, const char *done);
objection to_moving_rule(const look &now, const filter_request &request, bool rule_given);
