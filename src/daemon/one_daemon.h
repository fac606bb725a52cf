// That only one daemon runs. The claim is a record lock on a file: the kernel drops it with the process,
// however that ends, and children do not inherit it. The file stays; only its lock means something.
#pragma once

#include <sys/types.h>

// A daemon that was just killed may need this long to be gone.
constexpr int HBS_CLAIM_PATIENCE_MS = 500;

enum class hbs_claim {
    own,       // this process is the one, until it ends
    taken,     // another daemon runs
    impossible // there is no telling: the file cannot be had or locked; errno says why
};

// running [out] is the pid of the other daemon when the claim is taken; 0 when it is in a place where pids
// are others. Called once, before anything else of the daemon.
hbs_claim hbs_claim_daemon(pid_t *running);
