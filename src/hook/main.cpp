// hbs-lease-event: what dnsmasq (dhcp-script) and Kea (run_script) run for each lease. It tells the daemon by
// one datagram and ends. A server waits for nothing: when the daemon does not take the datagram at once it is
// lost, and the server's next word of the lease makes up for it.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <hbs_msg.h>

#include "base/router_paths.h"
#include "hook/lease_note.h"
#include "hook/link_local.h"
#include "hook/static_lease.h"

namespace {

const char *variable(const char *name) {
    return getenv(name);
}

void send_note(hbs_lease_note *note, void *context) {
    static constexpr uint8_t none[16] = {};
    if (note->kind == hbs_note_kind::lease_v6 && note->has_mac && memcmp(note->ll, none, sizeof none) == 0)
        (void)hbs_link_local_of(note->mac, note->ll);
    if (note->kind == hbs_note_kind::lease_v4)
        note->dynamic = !hbs_is_static_lease(HBS_ROUTER_SETTINGS, note->mac, note->address);
    uint8_t datagram[HBS_MSG_MAX];
    const size_t length = hbs_note_datagram(note, time(nullptr), datagram, sizeof datagram);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    static_assert(sizeof HBS_SOCKET_PATH <= sizeof address.sun_path);
    memcpy(address.sun_path, HBS_SOCKET_PATH, sizeof HBS_SOCKET_PATH);
    const int fd = *static_cast<const int *>(context);
    if (length > 0)
        (void)sendto(fd, datagram, length, MSG_DONTWAIT | MSG_NOSIGNAL,
                     reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

// A person's question; a server's words never begin like that. Returns whether it was one.
bool is_answered(int count, const char *const argv[]) {
    if (count == 2 && strcmp(argv[1], "--version") == 0)
        return puts("hbs-lease-event " HBS_VERSION) >= 0;
    if (count != 2 || strcmp(argv[1], "--help") != 0)
        return false;
    return puts("Usage: hbs-lease-event add|old|del MAC|DUID ADDRESS [HOST]   (dnsmasq: dhcp-script)\n"
                "       hbs-lease-event HOOK-POINT                           (Kea: run_script)\n"
                "       hbs-lease-event --help | --version\n\n"
                "Tells gw_hostbase of a DHCP lease. All else stands in the environment, as the servers have "
                "it.") >= 0;
}

} // namespace

int main(int count, char *argv[]) {
    if (is_answered(count, argv))
        return fflush(stdout) == 0 ? 0 : 1;
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return 0;
    hbs_notes_read(count, argv, variable, send_note, &fd);
    (void)close(fd);
    return 0;
}
