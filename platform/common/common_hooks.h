// What the shared part of the platforms asks of the one that it is built into.
#pragma once

#include "common_text.h"

// Whether a call has to fail, with the result to return.
bool common_call_fails(const char *call, int *result);

// A call had an effect outside this process, in words without a newline. Texts from elsewhere are escaped.
void common_note_effect(common_line *line);
