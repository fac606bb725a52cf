// System uptime.
#include <ctime>

#include <sysuptime.h>

int MAIN_getSysUpTime(uint32_t *seconds) {
    timespec now = {};
    if (seconds == nullptr || clock_gettime(CLOCK_BOOTTIME, &now) != 0)
        return -1;
    *seconds = static_cast<uint32_t>(now.tv_sec);
    return 0;
}
