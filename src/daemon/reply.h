// The replies of the command socket. Called by its thread only.
#pragma once

#include <cstdint>
#include <sys/socket.h>

// A sender whose queue is full gets this long, in all its life, to read its replies. What all senders
// together are waited for is bounded too: as much as this in any HBS_REPLY_RECOVERY_MS.
constexpr int HBS_REPLY_PATIENCE_MS = 200;
constexpr int HBS_REPLY_RECOVERY_MS = 10000;

// Gives a socket room for the replies that lie unread with many senders.
void hbs_reply_prepare(int socket);

// Sends a result; one that cannot be delivered is lost, which nobody notices but its sender.
void hbs_reply_send(int socket, int32_t result, const sockaddr_storage *to, socklen_t length);
