// One line of the DHCPv4 server's dynamic-lease and host-record files.
#include "fuzz_text.h"
#include "gateway/lease_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    hbs_lease_record record{};
    if (hbs_lease_record_parse(fuzz_text(data, size).c_str(), &record))
        fuzz_expect(record.text[2][0] != '\0'); // all eight fields are there
    return 0;
}
