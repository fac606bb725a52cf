// One line of the DHCPv4 server's dynamic-lease and host-record files.
#include <cstdlib>
#include <string>

#include "gateway/lease_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string line(reinterpret_cast<const char *>(data), size);
    hbs_lease_record record{};
    if (hbs_lease_record_parse(line.c_str(), &record) && record.text[2][0] == '\0')
        abort(); // all eight fields are there
    return 0;
}
