#include "daemon/sender_tag.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sys/un.h>

hbs_sender_tag hbs_sender_tag_of(const sockaddr_storage *address, socklen_t length) {
    constexpr size_t path_offset = offsetof(sockaddr_un, sun_path);
    uint8_t path[6];
    memcpy(path, reinterpret_cast<const char *>(address) + path_offset, sizeof(path));
    hbs_sender_tag tag;
    (void)snprintf(tag.text, sizeof(tag.text), "len %d : %02x %02x %02x %02x %02x %02x",
                   static_cast<int>(length) - static_cast<int>(path_offset), path[0], path[1], path[2],
                   path[3], path[4], path[5]);
    return tag;
}
