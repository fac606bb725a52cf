// The table of clients, and everything about one of them.
#pragma once

#include <string>
#include <vector>

#include <hbs_db.h>

#include "tools/text_table.h"

// The name that a person knows the client by: its host name, otherwise its device name. A lease puts
// the interface's name into the device name, which then names nobody.
std::string client_name(const hbs_client &client);

// "wifi 3" with the SSID number, "ethernet 2" with the switch port, otherwise the adapter's word.
std::string client_adapter(const hbs_client &client);

std::vector<table_column> client_columns();
std::vector<table_cell> client_row(const hbs_client &client);
text_table client_table(const std::vector<hbs_client> &clients);

// "96 clients, 12 on line".
std::string client_totals(const std::vector<hbs_client> &clients);

// One "name  value" row per field of a client that says something.
text_table client_details(const hbs_client &client);
