// The journal: one line for each call with an effect outside this process.
#pragma once

#include "common_text.h"

// Writes one line. Texts from elsewhere must have been added escaped. Any thread.
void host_journal_write(common_line *line);
