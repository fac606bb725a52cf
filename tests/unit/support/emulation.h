// Whether this program runs under user-mode emulation, whose kernel does not hand on neighbour messages
// (EINVAL): tests that need a live neighbour socket skip themselves there, and only there.
#pragma once

#include <fstream>
#include <string>

// The kernel's own name of the process is the emulator's, whatever the emulator shows of it elsewhere.
inline bool is_emulated() {
    std::ifstream file("/proc/self/comm");
    std::string name;
    (void)std::getline(file, name);
    return name.compare(0, 5, "qemu-") == 0;
}

inline constexpr const char *NO_NEIGHBOUR_MESSAGES =
    "user-mode emulation does not hand on the kernel's neighbour messages";
