// What DHCP servers call hbs-lease-event with: lines are words, or variables of the environment
// ("NAME=VALUE"). A device chooses its names in it.
#include <map>

#include <hbs_msg.h>

#include "fuzz_text.h"
#include "hook/lease_note.h"

namespace {

std::map<std::string, std::string> variables;

const char *variable(const char *name) {
    const auto found = variables.find(name);
    return found == variables.end() ? nullptr : found->second.c_str();
}

template <typename Message> void expect_texts_ended(const uint8_t *bytes) {
    Message message;
    memcpy(&message, bytes, sizeof message);
    fuzz_expect_ended(message.host);
    fuzz_expect_ended(message.oui);
    fuzz_expect_ended(message.serial_number);
    fuzz_expect_ended(message.product_class);
}

void tell(hbs_lease_note *note, void *) {
    uint8_t bytes[HBS_MSG_MAX] = {};
    const size_t length = hbs_note_datagram(note, 1900000000, bytes, sizeof bytes);
    fuzz_expect(length > 0 && length <= sizeof bytes);
    if (note->kind == hbs_note_kind::lease_v4)
        expect_texts_ended<hbs_msg_dhcpv4>(bytes);
    if (note->kind == hbs_note_kind::lease_v6)
        expect_texts_ended<hbs_msg_dhcpv6>(bytes);
    fuzz_expect(hbs_note_datagram(note, 0, bytes, length - 1) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    variables.clear();
    const std::vector<std::string> lines = fuzz_parts(fuzz_text(data, size), '\n');
    std::vector<const char *> words = {"hbs-lease-event"};
    for (const std::string &line : lines) {
        const size_t equals = line.find('=');
        if (equals == std::string::npos)
            words.push_back(line.c_str());
        else
            variables[line.substr(0, equals)] = line.substr(equals + 1);
    }
    const int count = static_cast<int>(words.size());
    words.push_back(nullptr);
    hbs_notes_read(count, words.data(), variable, tell, nullptr);
    return 0;
}
