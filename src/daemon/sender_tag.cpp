#include "daemon/sender_tag.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sys/un.h>

#include "base/text.h"

hbs_sender_tag hbs_sender_tag_of(const sockaddr_storage *address, socklen_t length) {
    constexpr size_t path_offset = offsetof(sockaddr_un, sun_path);
    uint8_t path[6];
    memcpy(path, reinterpret_cast<const char *>(address) + path_offset, sizeof(path));
    hbs_sender_tag tag;
    char *at = stpcpy(tag.text, "len ");
    at = hbs_number_to_text(static_cast<int>(length) - static_cast<int>(path_offset), at);
    hbs_bytes_to_hex(path, sizeof path, ' ', HBS_HEX_DIGITS, stpcpy(at, " : "));
    return tag;
}
