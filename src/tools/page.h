// One self-contained page that shows the LAN as a picture and as a table.
#pragma once

#include <string>

#include "tools/gateway_status.h"
#include "tools/json_view.h"
#include "tools/lan_networks.h"

// What the page shows: the clients of `list --json` with their names, the status, the networks, and when that
// was.
json page_json(const gateway_status &status, const std::vector<hbs_client> &clients,
               const std::vector<lan_network> &networks);

// A word that nobody can know before, by which the page's own script is told from a stranger's. Throws
// std::runtime_error.
std::string new_nonce();

// What a page with that nonce may do: run its own script and, when it is live, talk to where it came from.
std::string page_policy(const std::string &nonce, bool live);

// The document is JSON.
std::string page_html(const std::string &document, const std::string &nonce, bool live);
