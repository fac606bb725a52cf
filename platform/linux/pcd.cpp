// The service manager in the place of a process controller: it is told by a datagram that the daemon is
// ready.
#include <cstdlib>
#include <cstring>

#include <pcd.h>

#include "common_signals.h"
#include "linux_conf.h"
#include "linux_datagram.h"
#include "linux_hostapd.h"
#include "linux_static.h"

// A service manager that starts much at once may be late with its queue; one that is never told ends the
// daemon.
static constexpr unsigned patience_seconds = 10;

int PCD_api_register_exception_handlers(const char *name, void (*handler)(int signal_number)) {
    if (name == nullptr || handler == nullptr)
        return -1;
    linux_settings_complain();
    return common_catch_fatal_signals(handler) ? 0 : -1;
}

int PCD_api_send_process_ready(void) {
    linux_static_start();
    linux_hostapd_start();
    const char *path = getenv("NOTIFY_SOCKET");
    if (path == nullptr || *path == '\0')
        return 0;
    static constexpr char ready[] = "READY=1";
    return linux_datagram_send(path, ready, strlen(ready), patience_seconds) ? 0 : -1;
}
