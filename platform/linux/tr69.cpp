// Events go, one datagram each, to whoever has bound the events socket. Each has its number, so that a
// listener sees what it missed.
#include <atomic>

#include <tr69.h>

#include "linux_conf.h"
#include "linux_datagram.h"
#include "linux_event.h"

int quarn_tr69SendEvent(const uint8_t payload[TR69_EVENT_SIZE]) {
    static std::atomic<uint32_t> last_number;
    if (payload == nullptr)
        return -1;
    common_line line;
    linux_event_write(&line, payload, ++last_number);
    common_line_finish(&line);
    (void)linux_datagram_send(linux_settings()->events, line.text, line.length, 0);
    return 0;
}
