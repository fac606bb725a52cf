// Listens to the kernel's neighbour notifications.
#pragma once

// Thread entry; the argument is ignored. Returns null when the socket fails; it is not started again.
// When the kernel had to drop notifications because they came faster than they were handled, the thread
// handles what is queued and then reads both neighbour tables for what is new in them.
void *nl_listen_thread(void *argument);
