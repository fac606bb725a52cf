// Files that only grow: the log and the journal. Each line is one write, whole, at the file's end.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include "common_text.h"
#include "host_places.h"

struct host_sink {
    host_place place;
    bool (*changed)(
        host_place place); // host_place_was_changed for a caller who has just looked at the values
    pthread_mutex_t lock;
    int fd; // kept open; -1 = none
};

// Finishes the line and writes it, opening the file again when it was removed or replaced since the last
// line. What cannot be written there goes to standard error. Any thread.
void host_sink_write(host_sink *sink, common_line *line);
