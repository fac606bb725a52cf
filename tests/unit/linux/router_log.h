// What the Linux platform would have written to its log.
#pragma once

#include <string>
#include <vector>

extern std::vector<std::string> router_logged;
