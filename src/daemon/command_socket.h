// The command socket: receives datagrams, has them dispatched, sends the replies.
#pragma once

#include <cstdint>

struct hbs_command_server {
    int socket;
    int32_t reply_result; // of the last handler that ran; -1 before the first
};

// Opens and binds the socket, replacing a stale file of that name. The umask of whoever started the
// daemon decides who may send. Returns the descriptor, or -1 (logged).
int hbs_command_socket_open();

// Receives one datagram (waiting for it) and does what it asks.
void hbs_command_socket_serve(hbs_command_server *server);

// Thread entry; the argument is ignored. Returns null, and only when the socket cannot be had.
void *un_listen_thread(void *argument);

// Waits until a thread that was started takes datagrams, or has found that it cannot.
void hbs_command_socket_wait();
