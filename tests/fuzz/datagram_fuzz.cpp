// One datagram of the command socket, through the real handlers, to a gateway that remembers a few devices;
// every fortieth meets one that remembers more than have room.
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_daemon.h"
#include "fuzz_soundness.h"

namespace {

constexpr unsigned few = 3, too_many = 100;
constexpr uint8_t mac[6] = {0x02, 0xaa, 0, 0, 0, 0x11};

struct kept_file {
    std::string path, text;
};
std::vector<kept_file> kept;

// Every other one is trusted, and all texts are there or none.
std::string clients_text(unsigned count) {
    constexpr const char *texts[] = {
        "7e6e6f686f73747e 7e6e6f636f6d6d656e747e 00000000 7e6e6f6b6579776f72645f6c6973747e "
        "7e6e6f6465736372697074696f6e7e 0 7e6e6f646f6d61696e5f6c6973747e",
        "6c6170746f70 636c69656e742031 00000001 6b6579 6465736b 1 646f6d61696e"};
    std::string text = " version 1\n";
    for (unsigned i = 0; i < count; i++) {
        char line[192];
        (void)snprintf(line, sizeof line, "02:aa:00:00:00:%02x 0 %s\n", 0x11 + i, texts[i % 2]);
        text += line;
    }
    return text;
}

void put_on_list(uint8_t list, uint32_t value) {
    hbs_msg_filter message{};
    message.code = HBS_CMD_SET_MACFILTER;
    message.type = list;
    memcpy(message.mac, mac, sizeof mac);
    message.value1 = value;
    (void)fuzz_send(message);
}

void trust() {
    hbs_msg_trusted message{};
    message.code = HBS_CMD_SET_TRUSTED;
    message.action = 1;
    message.selector = 0x11;
    memcpy(message.mac, mac, sizeof mac);
    (void)fuzz_send(message);
}

void give_address(const uint8_t (&ipv4)[4]) {
    hbs_msg_set_static_lease message{};
    message.code = HBS_CMD_SET_STATIC_LEASE;
    message.family = HBS_FAMILY_IPV4;
    memcpy(message.ipv4, ipv4, sizeof ipv4);
    memcpy(message.mac, mac, sizeof mac);
    (void)fuzz_send(message);
}

// Each kind of file has one.
void keep(const char *pattern) {
    glob_t found{};
    if (glob(pattern, GLOB_NOSORT, nullptr, &found) != 0)
        abort();
    for (size_t i = 0; i < found.gl_pathc; i++) {
        std::ifstream file(found.gl_pathv[i], std::ios::binary);
        kept.push_back({found.gl_pathv[i], {std::istreambuf_iterator<char>(file), {}}});
    }
    globfree(&found);
}

// What the daemon itself writes of a device.
void keep_what_is_remembered() {
    fuzz_begin_with_nothing();
    for (const uint8_t list : {HBS_LIST_WHITE, HBS_LIST_BLACK})
        for (const uint32_t value : {0xabcU, 0x7fU})
            put_on_list(list, value);
    trust();
    give_address({192, 168, 0, 10});
    for (const char *pattern :
         {HBS_WHITE_RULES, HBS_BLACK_RULES, HBS_TRUSTED_INSTANCES, HBS_STATIC_LEASES_BEFORE "*"})
        keep(pattern);
}

// As after a start with these files.
void know_what_is_remembered() {
    const hbs_list_hold hold;
    fuzz_forget_clients();
    (void)hbs_set_route_mode(1);
}

void write_text(const char *path, const std::string &text) {
    fuzz_write_file(path, text.data(), text.size());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_start_daemon();
    fuzz_stop_at_damage();
    keep_what_is_remembered();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const std::string clients[] = {clients_text(few), clients_text(too_many)};
    if (size == 0)
        return 0;
    fuzz_begin_with_nothing();
    write_text(HBS_CLIENT_FILE, clients[size % 8 == 7 && data[0] % 5 == 1]);
    for (const kept_file &file : kept)
        write_text(file.path.c_str(), file.text);
    know_what_is_remembered();
    (void)fuzz_send(data, size);
    fuzz_expect_sound();
    (void)fuzz_send(data, size); // the client is there
    fuzz_expect_sound();
    return 0;
}
