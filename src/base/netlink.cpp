#include "base/netlink.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/scope.h"

namespace {

constexpr size_t DATAGRAM_SIZE = 8192; // the kernel fills a dump's datagrams no further
constexpr int DUMP_PATIENCE_MS = 2000; // the kernel answers at once; a wait has an end all the same

sockaddr_nl kernel_address(uint32_t groups) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = groups;
    return address;
}

int64_t now_ms() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// An interrupted wait counts as readable: receiving does not block, and the caller keeps the time.
bool wait_readable(int socket, int timeout_ms) {
    pollfd waiting = {socket, POLLIN, 0};
    const int ready = poll(&waiting, 1, timeout_ms);
    if (ready == 0)
        errno = ETIMEDOUT;
    return ready > 0 || (ready < 0 && errno == EINTR);
}

// Returns -1 with EINTR for what does not come from the kernel, and when there is nothing.
ssize_t receive_once(int socket, void *buffer, size_t size) {
    sockaddr_nl sender{};
    iovec part = {buffer, size};
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof sender;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    const ssize_t length = recvmsg(socket, &message, MSG_DONTWAIT);
    if (length < 0) {
        errno = errno == EAGAIN ? EINTR : errno;
        return -1;
    }
    if (sender.nl_pid != 0) { // however long it is
        errno = EINTR;
        return -1;
    }
    if ((message.msg_flags & MSG_TRUNC) != 0) {
        errno = ENOSPC;
        return -1;
    }
    return length;
}

// What the length field at the front of `rest` claims, or 0 when there is not as much or less than a header.
size_t claimed(hbs_netlink_bytes rest, size_t length, size_t header) {
    return length >= header && length <= rest.size ? length : 0;
}

void advance(hbs_netlink_bytes *rest, size_t length) {
    constexpr size_t ALIGNMENT = NLMSG_ALIGNTO;
    static_assert(NLMSG_ALIGNTO == RTA_ALIGNTO);
    const size_t step = std::min((length + ALIGNMENT - 1) & ~(ALIGNMENT - 1), rest->size);
    rest->data += step;
    rest->size -= step;
}

// Of an error message or the end of a dump, which both begin with a code: 0, or -1 with its errno.
int result_of(const hbs_netlink_message *message, size_t least) {
    int32_t error = 0;
    if (message->whole.size < NLMSG_HDRLEN + least)
        error = -EBADMSG;
    else if (message->whole.size >= NLMSG_HDRLEN + sizeof error)
        memcpy(&error, message->whole.data + NLMSG_HDRLEN, sizeof error);
    const auto code = static_cast<uint32_t>(error);
    errno = static_cast<int>(error < 0 ? 0u - code : code);
    return error == 0 ? 0 : -1;
}

// Returns 1 to go on.
int visit_one(const hbs_netlink_message *message, hbs_netlink_visit visit, void *context) {
    if ((message->head.nlmsg_flags & NLM_F_DUMP_INTR) != 0) {
        errno = EINTR;
        return -1;
    }
    if (message->head.nlmsg_type >= NLMSG_MIN_TYPE)
        visit(message->whole, context);
    if (message->head.nlmsg_type == NLMSG_ERROR)
        return result_of(message, sizeof(nlmsgerr));
    return message->head.nlmsg_type == NLMSG_DONE ? result_of(message, 0) : 1;
}

} // namespace

int hbs_netlink_open() {
    return socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
}

bool hbs_netlink_bind(int socket, uint32_t groups) {
    const sockaddr_nl address = kernel_address(groups);
    return bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

uint32_t hbs_netlink_port(int socket) {
    sockaddr_nl address{};
    socklen_t size = sizeof address;
    (void)getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size);
    return address.nl_pid;
}

bool hbs_netlink_request_neighbours(int socket, int family, uint32_t sequence) {
    struct {
        nlmsghdr head;
        rtgenmsg body;
    } request = {};
    request.head.nlmsg_len = NLMSG_SPACE(sizeof request.body);
    request.head.nlmsg_type = RTM_GETNEIGH;
    request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK | NLM_F_DUMP;
    request.head.nlmsg_seq = sequence;
    request.body.rtgen_family = static_cast<unsigned char>(family);
    static_assert(sizeof request == NLMSG_SPACE(sizeof(rtgenmsg)));
    const sockaddr_nl kernel = kernel_address(0);
    return sendto(socket, &request, sizeof request, 0, reinterpret_cast<const sockaddr *>(&kernel),
                  sizeof kernel) >= 0;
}

ssize_t hbs_netlink_receive(int socket, void *buffer, size_t size, int timeout_ms) {
    const int64_t end = now_ms() + timeout_ms;
    while (wait_readable(socket, timeout_ms)) {
        const ssize_t length = receive_once(socket, buffer, size);
        if (length >= 0 || errno != EINTR)
            return length;
        if (timeout_ms < 0)
            continue;
        timeout_ms = static_cast<int>(end - now_ms());
        if (timeout_ms <= 0) {
            errno = ETIMEDOUT;
            return -1;
        }
    }
    return -1;
}

bool hbs_netlink_next(hbs_netlink_bytes *rest, hbs_netlink_message *out) {
    if (rest->size < sizeof out->head)
        return false;
    memcpy(&out->head, rest->data, sizeof out->head);
    const size_t length = claimed(*rest, out->head.nlmsg_len, sizeof out->head);
    out->whole = {rest->data, length};
    advance(rest, length);
    return length != 0;
}

void hbs_netlink_attributes(hbs_netlink_bytes bytes, hbs_netlink_bytes table[], int highest) {
    rtattr head;
    while (bytes.size >= sizeof head) {
        memcpy(&head, bytes.data, sizeof head);
        const size_t length = claimed(bytes, head.rta_len, sizeof head);
        if (length == 0)
            return;
        const int type = head.rta_type & NLA_TYPE_MASK;
        if (type <= highest)
            table[type] = {bytes.data + sizeof head, length - sizeof head};
        advance(&bytes, length);
    }
}

bool hbs_netlink_neighbour(hbs_netlink_bytes message, hbs_neighbour *out) {
    constexpr size_t HEADERS = NLMSG_HDRLEN + sizeof(ndmsg);
    if (message.size < HEADERS)
        return false;
    *out = {};
    memcpy(&out->header, message.data + NLMSG_HDRLEN, sizeof out->header);
    hbs_netlink_attributes({message.data + HEADERS, message.size - HEADERS}, out->attributes, NDA_PROBES);
    return true;
}

int hbs_netlink_walk(hbs_netlink_bytes datagram, hbs_netlink_visit visit, void *context) {
    hbs_netlink_message message;
    int result = 1;
    while (result > 0 && hbs_netlink_next(&datagram, &message))
        result = visit_one(&message, visit, context);
    return result;
}

bool hbs_netlink_dump_neighbours(int family, hbs_netlink_visit visit, void *context) {
    const int socket = hbs_netlink_open();
    if (socket < 0)
        return false;
    hbs_at_exit end([socket] { (void)close(socket); });
    if (!hbs_netlink_bind(socket, 0) || !hbs_netlink_request_neighbours(socket, family, 1))
        return false;
    alignas(nlmsghdr) uint8_t buffer[DATAGRAM_SIZE];
    int result = 1;
    while (result > 0) {
        const ssize_t length = hbs_netlink_receive(socket, buffer, sizeof buffer, DUMP_PATIENCE_MS);
        result = length < 0 ? -1 : hbs_netlink_walk({buffer, static_cast<size_t>(length)}, visit, context);
    }
    return result == 0;
}
