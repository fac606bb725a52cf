// Finds the client that a person means.
#pragma once

#include <string>
#include <vector>

#include "tools/database.h"
#include "tools/look.h"
#include "tools/objections.h"
#include "tools/session.h"
#include "tools/words.h"

// Clients that a MAC, an address or a name stands for. Throws run_error (exit_negative) when there is none,
// with the names that are nearest to what was typed.
std::vector<hbs_client> known_clients(const database &db, const std::string &key);

// The only one that it stands for. Throws run_error when there are several, too, which names them.
hbs_client one_client(const database &db, const std::string &key);

// Who a command is about: a client, or only a MAC or an address that no client has.
struct meant_client {
    std::optional<hbs_client> client;
    std::string key;   // as key_of names it
    objection unknown; // that there is no such client
};

// Throws run_error for what names nobody or several: of a name alone no request can be made, not even with
// --force.
meant_client client_meant(const session &run, const look &now, const std::string &key);

// A MAC as it stands, known or not; otherwise that of the one client.
mac_bytes device_of(const session &run, const look &now, const std::string &key);

// The same, which reads the database only when it has to.
mac_bytes device_meant(const session &run, const std::string &key);

// An IPv6 address as it stands; otherwise the link-local one of the one client.
ipv6_bytes link_local_meant(const session &run, const std::string &key);

// The end of a run that can send nothing, because this is not known of a client, and --force cannot know it.
run_error nothing_to_send(const session &run, const std::string &why, const std::string &missing);

// By which address the daemon is told of a client: of records that hold the same one it takes the first, so
// the first address that is the client's alone, otherwise its first one. None when it has none.
std::optional<ip_address> address_to_tell(const database &db, const hbs_client &client);

// That other clients hold the address, too.
objection to_shared(const database &db, const ip_address &address);

// How a client is named in messages and looked up again: by its MAC, or by an address.
std::string key_of(const hbs_client &client);

// Whether a client's texts are already as asked for: setting them again would make the name that its device
// gave one that the user set. None: not asked for.
bool has_texts(const hbs_client &client, const std::optional<std::string> &comment,
               const std::optional<std::string> &host);

// The words of `known` that differ from `word` in few letters, the nearest first, three at most.
std::vector<std::string> nearest(const std::string &word, const std::vector<std::string> &known);

// ": did you mean 'a' or 'b'?", or nothing.
std::string suggestion(const std::string &word, const std::vector<std::string> &known);

// Why a word is none of those that there are, with the nearest of them.
std::string none_of_text(const std::string &word, const std::vector<std::string> &known);
