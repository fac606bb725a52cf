// What the daemon's answer to a command means, in words.
#pragma once

#include <cstdint>
#include <string>

#include <hbs_msg.h>

struct answer_meaning {
    bool accepted;
    std::string text;
};

answer_meaning meaning_of(hbs_code code, int32_t answer);
