#include "files/trusted_devices.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/line_edit.h"
#include "base/scope.h"

namespace {

constexpr char MAC_TAG[] = "mac:";
constexpr char INSTANCE_TAG[] = "tr69_i_id:";
constexpr uint32_t MAX_PAYLOAD = 4096; // a longer one is damage, not a record

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

struct record {
    uint32_t length;
    uint8_t payload[MAX_PAYLOAD];
};

// Reads one record. Returns whether a whole one was there.
bool read_record(FILE *file, record *out) {
    return fread(&out->length, sizeof out->length, 1, file) == 1 && out->length > 0 &&
           out->length <= MAX_PAYLOAD && fread(out->payload, out->length, 1, file) == 1;
}

void write_record(FILE *file, const record *in) {
    (void)fwrite(&in->length, sizeof in->length, 1, file);
    (void)fwrite(in->payload, in->length, 1, file);
}

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

void make_record(const hbs_trusted_device *device, record *out) {
    written_record written{};
    written.payload_length = sizeof written - sizeof written.payload_length;
    memcpy(written.mac_tag, MAC_TAG, sizeof written.mac_tag);
    written.mac_length = HBS_MAC_SIZE;
    memcpy(written.mac, device->mac, HBS_MAC_SIZE);
    memcpy(written.instance_tag, INSTANCE_TAG, sizeof written.instance_tag);
    written.instance_length = sizeof written.instance;
    written.instance = device->instance;
    memcpy(out, &written, sizeof written);
}

// Copies the records of `from` that have a MAC to `to`; the one of `mac` is replaced by `replacement`, or
// dropped when that is null. Returns whether there was one.
bool copy_records(FILE *from, FILE *to, const uint8_t mac[HBS_MAC_SIZE], const record *replacement) {
    static record current; // 4 KB; callers hold hbs_list_mutex
    bool matched = false;
    while (read_record(from, &current)) {
        item device{};
        if (!find_item(&current, MAC_TAG, &device))
            continue;
        const bool same = is_mac(&device, mac);
        if (!same)
            write_record(to, &current);
        else if (replacement != nullptr && !matched)
            write_record(to, replacement);
        matched = matched || same;
    }
    return matched;
}

// Rewrites the file; `old` may be null (no file yet).
int rewrite(FILE *old, const uint8_t mac[HBS_MAC_SIZE], const record *replacement) {
    char *content = nullptr;
    size_t length = 0;
    FILE *stream = open_memstream(&content, &length);
    if (stream == nullptr)
        return -1;
    hbs_at_exit release([&content] { free(content); });
    const bool matched = old != nullptr && copy_records(old, stream, mac, replacement);
    if (!matched && replacement != nullptr)
        write_record(stream, replacement);
    if (fclose(stream) != 0)
        return -1;
    return hbs_file_replace(HBS_TRUSTED_INSTANCES, content, length);
}

} // namespace

int hbs_nv_set_trusted_tr69_instance(const hbs_trusted_device *device) {
    static record replacement; // 4 KB; callers hold hbs_list_mutex
    make_record(device, &replacement);
    FILE *old = fopen(HBS_TRUSTED_INSTANCES, "re");
    const int result = rewrite(old, device->mac, &replacement);
    if (old != nullptr)
        (void)fclose(old);
    return result;
}

int hbs_nv_remove_trusted_tr69_instance(const uint8_t mac[HBS_MAC_SIZE]) {
    FILE *old = fopen(HBS_TRUSTED_INSTANCES, "re");
    if (old == nullptr)
        return -1;
    const int result = rewrite(old, mac, nullptr);
    (void)fclose(old);
    return result;
}

int hbs_nv_get_trusted_tr69_instance(hbs_trusted_device *device) {
    FILE *file = fopen(HBS_TRUSTED_INSTANCES, "re");
    if (file == nullptr)
        return -1;
    hbs_at_exit close([file] { (void)fclose(file); });
    static record current; // 4 KB; callers hold hbs_list_mutex
    while (read_record(file, &current)) {
        item mac{};
        item instance{};
        if (!find_item(&current, MAC_TAG, &mac) || !is_mac(&mac, device->mac) ||
            !find_item(&current, INSTANCE_TAG, &instance) || instance.value_length != sizeof device->instance)
            continue;
        memcpy(&device->instance, instance.value, sizeof device->instance);
        return 0;
    }
    return -1;
}
