#include "daemon/reply.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <iterator>
#include <sys/time.h>

namespace {

// A sender that was waited for.
struct slow_sender {
    sockaddr_storage address;
    socklen_t length; // 0 = free
    int waited_ms;
};

slow_sender slow_senders[16];
unsigned next_place;
int64_t recovered_at; // when nothing that was waited counts any more, monotonic milliseconds

int64_t monotonic_ms() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// The note of a sender; a new one takes the place of the oldest.
slow_sender *note_of(const sockaddr_storage *to, socklen_t length) {
    for (slow_sender &sender : slow_senders)
        if (sender.length == length && memcmp(&sender.address, to, length) == 0)
            return &sender;
    slow_sender *fresh = &slow_senders[next_place++ % std::size(slow_senders)];
    *fresh = {};
    fresh->length = length;
    memcpy(&fresh->address, to, length);
    return fresh;
}

// Each millisecond of waiting is forgotten after this many of not waiting.
constexpr int FORGET = HBS_REPLY_RECOVERY_MS / HBS_REPLY_PATIENCE_MS;

int patience_left(const slow_sender *sender, int64_t now) {
    const int64_t counted = std::max<int64_t>(recovered_at - now, 0) / FORGET;
    return HBS_REPLY_PATIENCE_MS - std::max(sender->waited_ms, static_cast<int>(counted));
}

} // namespace

void hbs_reply_prepare(int socket) {
    constexpr int room = 4 * 1024 * 1024; // bytes; each reply that lies unread takes under 1 KB of it
    if (setsockopt(socket, SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof(room)) != 0)
        (void)setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &room, sizeof(room));
}

void hbs_reply_send(int socket, int32_t result, const sockaddr_storage *to, socklen_t length) {
    const sockaddr *address = reinterpret_cast<const sockaddr *>(to);
    if (sendto(socket, &result, sizeof(result), MSG_DONTWAIT, address, length) >= 0 || errno != EAGAIN)
        return;
    const int64_t start = monotonic_ms();
    slow_sender *sender = note_of(to, length);
    const int patience = patience_left(sender, start);
    if (patience <= 0)
        return;
    const timeval limit = {0, patience * suseconds_t{1000}};
    (void)setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    (void)sendto(socket, &result, sizeof(result), 0, address, length);
    const int64_t end = monotonic_ms();
    sender->waited_ms += static_cast<int>(end - start);
    recovered_at = std::max(recovered_at, start) + (end - start) * FORGET;
}
