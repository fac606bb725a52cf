// System uptime: the machine's own, or a number from the file of values.
#include <ctime>

#include <sysuptime.h>

#include "host_values.h"

int MAIN_getSysUpTime(uint32_t *seconds) {
    host_values_hold hold;
    int result = 0;
    if (host_told_to_fail("MAIN_getSysUpTime", &result))
        return result;
    if (seconds == nullptr)
        return -1;
    const char *given = host_value("uptime");
    if (given != nullptr)
        return common_text_to_u32(given, seconds) ? 0 : -1;
    timespec now = {};
    if (clock_gettime(CLOCK_BOOTTIME, &now) != 0)
        return -1;
    *seconds = static_cast<uint32_t>(now.tv_sec);
    return 0;
}
