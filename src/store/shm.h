// Creation of, or attachment to, the shared segment at start-up.
#pragma once

#include "store/segment.h"

// Opens the semaphore, creates or attaches the segment, carves the pools, empties the lists, and posts
// the semaphore once: that post is what first opens the database to readers. Failures are logged.
// A later call takes the attached segment and empties it.
void hbs_shm_init();
