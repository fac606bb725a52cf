#include "daemon/command_socket.h"

#include <cerrno>
#include <cstring>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <hbs_msg.h>

#include "base/counters.h"
#include "base/event.h"
#include "base/log.h"
#include "base/paths.h"
#include "daemon/dispatcher.h"
#include "daemon/reply.h"
#include "daemon/sender_tag.h"

namespace {

// Never cleared: what a short datagram leaves unsaid is as its predecessor left it.
uint8_t buffer[HBS_MSG_MAX];

// Whether un_listen_thread has come so far that senders find the socket, or never will.
pthread_mutex_t settled_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t settled_change = PTHREAD_COND_INITIALIZER;
bool settled;

void settle() {
    (void)pthread_mutex_lock(&settled_lock);
    settled = true;
    (void)pthread_cond_broadcast(&settled_change);
    (void)pthread_mutex_unlock(&settled_lock);
}

} // namespace

int hbs_command_socket_open() {
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        HBS_LOG(HBS_ERROR, "error opening datagram socket\n");
        return -1;
    }
    hbs_reply_prepare(descriptor);
    sockaddr_un address{};
    static_assert(sizeof(address) == 110 && sizeof(HBS_SOCKET_PATH) <= sizeof(address.sun_path));
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, HBS_SOCKET_PATH, sizeof(HBS_SOCKET_PATH));
    (void)unlink(HBS_SOCKET_PATH);
    if (bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        HBS_LOG(HBS_ERROR, "error binding datagram socket\n");
        (void)close(descriptor);
        return -1;
    }
    if (HBS_SOCKET_MODE != 0 && chmod(HBS_SOCKET_PATH, HBS_SOCKET_MODE) != 0)
        HBS_LOG(HBS_ERROR, "HOSTBASE: mode of %s not set - %s", HBS_SOCKET_PATH, strerror(errno));
    return descriptor;
}

void hbs_command_socket_serve(hbs_command_server *server) {
    sockaddr_storage sender{};
    socklen_t length = sizeof(sender);
    static_assert(sizeof(sender) == 128);
    sockaddr *address = reinterpret_cast<sockaddr *>(&sender);
    const ssize_t received = recvfrom(server->socket, buffer, sizeof(buffer), 0, address, &length);
    const hbs_sender_tag tag = hbs_sender_tag_of(&sender, length);
    if (received <= 0)
        return;
    const hbs_event event;
    hbs_command command{};
    command.buffer = buffer;
    command.sender = tag.text;
    command.result = server->reply_result;
    hbs_count(HBS_COUNT_DATAGRAMS);
    if (hbs_dispatch(&command))
        hbs_reply_send(server->socket, command.result, &sender, length);
    server->reply_result = command.result;
    hbs_dispatch_after(&command);
}

void *un_listen_thread(void *) {
    hbs_command_server server = {hbs_command_socket_open(), -1};
    settle();
    if (server.socket < 0)
        return nullptr;
    for (;;)
        hbs_command_socket_serve(&server);
}

void hbs_command_socket_wait() {
    (void)pthread_mutex_lock(&settled_lock);
    while (!settled)
        (void)pthread_cond_wait(&settled_change, &settled_lock);
    (void)pthread_mutex_unlock(&settled_lock);
}
