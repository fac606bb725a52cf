#include "files/trusted_devices.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/file_text.h"
#include "base/line_edit.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/scope.h"

namespace {

constexpr char MAC_TAG[] = "mac:";
constexpr char INSTANCE_TAG[] = "tr69_i_id:";
constexpr uint32_t MAX_PAYLOAD = 4096; // a longer one is damage, not a record
constexpr size_t MAX_FILE = 1 << 20;   // what is behind that is not read

// A record as it is written; records that are read may hold other items too.
struct __attribute__((packed)) written_record {
    uint32_t payload_length;
    char mac_tag[4];
    uint32_t mac_length;
    uint8_t mac[HBS_MAC_SIZE];
    char instance_tag[10];
    uint32_t instance_length;
    uint32_t instance;
    uint8_t end; // 0: a reader also takes it as the end of a tag
};
static_assert(sizeof(written_record) == 37, "the agent reads the same file");

// A record inside the bytes of the file, or one to be written: `bytes` begin with the payload's length.
struct record {
    const uint8_t *bytes;
    const uint8_t *payload;
    uint32_t length; // of the payload
};

struct item {
    const uint8_t *tag;
    uint32_t tag_length; // up to and including its ":"
    const uint8_t *value;
    uint32_t value_length;
};

// Takes the item at *position and moves behind it. A tag also ends at a byte equal to the payload's last
// one. Returns false at the end, or where the lengths do not fit.
bool next_item(const record *in, uint32_t *position, item *out) {
    const uint8_t last = in->payload[in->length - 1];
    uint32_t end = *position;
    while (end < in->length && in->payload[end] != ':' && in->payload[end] != last)
        ++end;
    if (end >= in->length)
        return false;
    ++end;
    uint32_t length = 0;
    if (in->length - end < sizeof length)
        return false;
    memcpy(&length, in->payload + end, sizeof length);
    const uint32_t value = end + static_cast<uint32_t>(sizeof length);
    if (length > in->length - value)
        return false;
    *out = {in->payload + *position, end - *position, in->payload + value, length};
    *position = value + length;
    return true;
}

bool find_item(const record *in, const char *tag, item *found) {
    uint32_t position = 0;
    while (next_item(in, &position, found))
        if (found->tag_length == strlen(tag) && memcmp(found->tag, tag, found->tag_length) == 0)
            return true;
    return false;
}

bool is_mac(const item *value, const uint8_t mac[HBS_MAC_SIZE]) {
    return value->value_length == HBS_MAC_SIZE && memcmp(value->value, mac, HBS_MAC_SIZE) == 0;
}

// 0 when the record has none: nobody has given the device a number yet.
uint32_t instance_of(const record *in) {
    item found{};
    uint32_t instance = 0;
    if (find_item(in, INSTANCE_TAG, &found) && found.value_length == sizeof instance)
        memcpy(&instance, found.value, sizeof instance);
    return instance;
}

written_record make_record(const hbs_trusted_device *device) {
    written_record written{};
    written.payload_length = sizeof written - sizeof written.payload_length;
    memcpy(written.mac_tag, MAC_TAG, sizeof written.mac_tag);
    written.mac_length = HBS_MAC_SIZE;
    memcpy(written.mac, device->mac, HBS_MAC_SIZE);
    memcpy(written.instance_tag, INSTANCE_TAG, sizeof written.instance_tag);
    written.instance_length = sizeof written.instance;
    written.instance = device->instance;
    return written;
}

// The file's bytes while it is gone through.
struct file_bytes {
    hbs_file_text text;
    const uint8_t *data = nullptr;
    size_t size = 0;
    size_t position = 0;
    size_t dropped = 0; // bytes that were no record
};

hbs_file_read read_file(file_bytes *file) {
    const hbs_file_read result = hbs_file_text_read(HBS_TRUSTED_INSTANCES, MAX_FILE, &file->text);
    file->data = reinterpret_cast<const uint8_t *>(file->text.data);
    file->size = file->text.length;
    return result;
}

// The record that stands at a place of the file. Returns whether its length can be right.
bool record_at(const file_bytes *file, size_t position, record *out) {
    const size_t left = file->size - position;
    if (left < sizeof out->length)
        return false;
    out->bytes = file->data + position;
    out->payload = out->bytes + sizeof out->length;
    memcpy(&out->length, out->bytes, sizeof out->length);
    return out->length > 0 && out->length <= MAX_PAYLOAD && out->length <= left - sizeof out->length;
}

// Whether a record as this file writes them, its MAC first, seems to begin at a place.
bool begins_at(const file_bytes *file, size_t position) {
    constexpr size_t TAG = sizeof MAC_TAG - 1;
    record there{};
    uint32_t mac_length = 0;
    if (!record_at(file, position, &there) || there.length < TAG + sizeof mac_length + HBS_MAC_SIZE ||
        memcmp(there.payload, MAC_TAG, TAG) != 0)
        return false;
    memcpy(&mac_length, there.payload + TAG, sizeof mac_length);
    return mac_length == HBS_MAC_SIZE;
}

// First place from `position` on, and before `end`, where a record seems to begin; `end` when there is none.
size_t find_beginning(const file_bytes *file, size_t position, size_t end) {
    while (position < end && !begins_at(file, position))
        ++position;
    return position;
}

bool is_text(const item *tag) {
    return std::all_of(
        tag->tag, tag->tag + tag->tag_length, [](uint8_t c) { return c > ' ' && c < 0x7f; });
}

// How much of a payload is made of sound items.
uint32_t sound_length(const record *in) {
    uint32_t position = 0;
    uint32_t sound = 0;
    item next{};
    while (next_item(in, &position, &next) && is_text(&next))
        sound = position;
    return sound;
}

// Takes the next record. What is no record is passed over, up to where one begins again: a length that was
// damaged loses its own record and none behind it. Returns false at the end of the file.
bool next_record(file_bytes *file, record *out) {
    while (file->position < file->size) {
        const size_t start = file->position;
        const bool fits = record_at(file, start, out);
        const size_t head = sizeof out->length;
        const size_t end = fits ? start + head + out->length : file->size;
        // A length that is too long covers the beginning of the next record; in a sound item nothing is
        // looked for.
        file->position = find_beginning(file, fits ? start + head + sound_length(out) : start + 1, end);
        if (fits && file->position == end)
            return true;
        file->dropped += file->position - start;
    }
    return false;
}

// Copies the records of the file that have a MAC to `to`; the one of `mac` is replaced by `replacement`, or
// dropped when that is null. Returns whether there was one.
bool copy_records(file_bytes *file, FILE *to, const uint8_t mac[HBS_MAC_SIZE],
                  const written_record *replacement) {
    bool matched = false;
    record current{};
    while (next_record(file, &current)) {
        item device{};
        if (!find_item(&current, MAC_TAG, &device))
            continue;
        const bool same = is_mac(&device, mac);
        if (!same)
            (void)fwrite(current.bytes, sizeof current.length + current.length, 1, to);
        else if (replacement != nullptr && !matched)
            (void)fwrite(replacement, sizeof *replacement, 1, to);
        matched = matched || same;
    }
    return matched;
}

// Rewrites the file from what was read of it.
int rewrite(file_bytes *file, const uint8_t mac[HBS_MAC_SIZE], const written_record *replacement) {
    char *content = nullptr;
    size_t length = 0;
    FILE *stream = open_memstream(&content, &length);
    if (stream == nullptr)
        return hbs_file_replace(HBS_TRUSTED_INSTANCES, nullptr, 0);
    hbs_at_exit release([&content] { free(content); });
    const bool matched = copy_records(file, stream, mac, replacement);
    if (!matched && replacement != nullptr)
        (void)fwrite(replacement, sizeof *replacement, 1, stream);
    const bool whole = ferror(stream) == 0;
    if (fclose(stream) != 0 || !whole || content == nullptr) // null: no memory for its last piece
        return hbs_file_replace(HBS_TRUSTED_INSTANCES, nullptr, 0);
    if (file->dropped > 0)
        HBS_LOG(HBS_ERROR, "HOSTBASE: %s is damaged: %zu bytes that are no record are dropped",
                HBS_TRUSTED_INSTANCES, file->dropped);
    return hbs_file_replace(HBS_TRUSTED_INSTANCES, content, length);
}

} // namespace

int hbs_nv_set_trusted_tr69_instance(const hbs_trusted_device *device) {
    const written_record replacement = make_record(device);
    file_bytes file;
    if (read_file(&file) == hbs_file_read::failed)
        return -1;
    return rewrite(&file, device->mac, &replacement);
}

int hbs_nv_remove_trusted_tr69_instance(const uint8_t mac[HBS_MAC_SIZE]) {
    file_bytes file;
    return read_file(&file) == hbs_file_read::done ? rewrite(&file, mac, nullptr) : -1;
}

int hbs_nv_get_trusted_tr69_instance(hbs_trusted_device *device) {
    file_bytes file;
    if (read_file(&file) != hbs_file_read::done)
        return -1;
    record current{};
    while (next_record(&file, &current)) {
        item mac{};
        if (!find_item(&current, MAC_TAG, &mac) || !is_mac(&mac, device->mac))
            continue;
        device->instance = instance_of(&current);
        return 0;
    }
    return -1;
}
