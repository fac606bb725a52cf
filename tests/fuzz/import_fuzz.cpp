// A document of settings that hbsctl imports: what it took reads the same when it is written and read again.
// The changes are made to values of the document, because most changes of its bytes leave none.
#include "fuzz_text.h"
#include "tools/user_settings.h"

extern "C" __attribute__((weak)) size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t most);

namespace {

constexpr const char *values[] = {"\"02:aa:00:00:00:11\"",
                                  "\"192.168.0.11\"",
                                  "\"fd00::11\"",
                                  "\"laptop\"",
                                  "{\"hex\":\"4bfc\"}",
                                  "[\"site\",\"service\"]",
                                  "[\"white\",\"black\"]",
                                  "[{\"list\":\"black\",\"rule\":\"7f,1,2,3,4,5\"}]",
                                  "8",
                                  "4294967295",
                                  "\"\"",
                                  "[]",
                                  "null",
                                  "-1",
                                  "1.5"};
constexpr const char *names[] = {"mac",         "static_lease", "network",        "internal_lease",
                                 "trust",       "comment",      "host",           "description",
                                 "keywords",    "domains",      "lists",          "rules",
                                 "filter_word", "devices",      "hbsctl_settings"};

// A place somewhere in the document.
json &place_in(json &document, unsigned &seed) {
    json *at = &document;
    while (at->is_structured() && !at->empty() && seed % 4 != 0) {
        auto below = at->begin();
        std::advance(below, static_cast<long>(seed / 4 % at->size()));
        at = &*below;
        seed = seed * 1103515245 + 12345;
    }
    return *at;
}

void change_value(json &document, unsigned seed) {
    json &place = place_in(document, seed);
    const unsigned chosen = seed >> 8;
    const json value = json::parse(values[chosen % std::size(values)]);
    if (place.is_object())
        place[names[chosen / 16 % std::size(names)]] = value;
    else if (place.is_array() && chosen % 2 == 0)
        place.push_back(place.empty() ? value : place.back());
    else
        place = value;
}

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t most, unsigned seed) {
    json document = json::parse(data, data + size, nullptr, false);
    if (document.is_discarded() || seed % 4 == 0)
        return LLVMFuzzerMutate(data, size, most);
    change_value(document, seed);
    const std::string text = json_text(document, -1);
    if (text.size() > most)
        return LLVMFuzzerMutate(data, size, most);
    memcpy(data, text.data(), text.size());
    return text.size();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::vector<device_settings> devices;
    try {
        devices = parse_settings(fuzz_text(data, size));
    } catch (const request_error &) {
        return 0; // it was none
    }
    const json written = settings_json(devices);
    fuzz_expect(settings_json(parse_settings(json_text(written))) == written);
    return 0;
}
