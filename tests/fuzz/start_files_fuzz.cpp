// What the daemon reads when it starts, and of the devices that it then knows the instance numbers and, once
// they have an address, the DHCPv6 server's leases. The first byte says which files are there; what follows,
// cut at each 0xff, is what stands in them.
#include <cstdint>
#include <cstring>
#include <iterator>
#include <unistd.h>

#include "base/paths.h"
#include "files/client_file.h"
#include "files/client_leases.h"
#include "files/leasev6.h"
#include "files/rule_files.h"
#include "files/trusted_devices.h"
#include "files/user_settings.h"
#include "fuzz_daemon.h"
#include "fuzz_soundness.h"
#include "store/client_fields.h"

namespace {

constexpr const char *files[] = {HBS_CLIENT_FILE,
                                 HBS_WHITE_RULES,
                                 HBS_BLACK_RULES,
                                 HBS_TRUSTED_INSTANCES,
                                 HBS_DYNAMIC_LEASES_BEFORE "192.168.0.1" HBS_DYNAMIC_LEASES_AFTER,
                                 HBS_STATIC_LEASES_BEFORE "192.168.0.1" HBS_STATIC_LEASES_AFTER,
                                 HBS_LEASEV6_DATABASE,
                                 HBS_USERCONF};

// Callers hold hbs_list_mutex.
void ask_for_instances() {
    for (const hbs_client *client = hbs_client_first(); client != nullptr; client = hbs_client_next(client)) {
        hbs_trusted_device device{};
        memcpy(device.mac, client->mac, sizeof device.mac);
        (void)hbs_nv_get_trusted_tr69_instance(&device);
    }
}

// One has the address of the seeds. Callers hold hbs_list_mutex.
void ask_for_a_lease() {
    static constexpr uint8_t address[16] = {0xfd, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x19, 0x75};
    const hbs_client *first = hbs_client_first();
    hbs_client *client = first == nullptr ? nullptr : hbs_find_by_mac(first->mac);
    if (client == nullptr)
        return;
    hbs_set_ipv6(client, address);
    hbs_leasev6_find(client);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_start_daemon();
    fuzz_stop_at_damage();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const uint8_t there = size == 0 ? 0 : data[0];
    const uint8_t *at = data + (size == 0 ? 0 : 1);
    const uint8_t *end = data + size;
    for (size_t i = 0; i < std::size(files); i++) {
        (void)unlink(files[i]);
        if ((there >> i & 1) == 0)
            continue;
        const auto *cut = static_cast<const uint8_t *>(memchr(at, 0xff, static_cast<size_t>(end - at)));
        const uint8_t *stop = cut == nullptr ? end : cut;
        fuzz_write_file(files[i], at, static_cast<size_t>(stop - at));
        at = cut == nullptr ? end : cut + 1;
    }
    const hbs_list_hold hold;
    fuzz_forget_clients();
    hbs_settings_tidy();
    if (hbs_nv_load_clients() != 0) {
        hbs_handle_dynamic_leases_from_file();
        hbs_nv_save_clients();
    }
    hbs_nv_load_rules();
    ask_for_instances();
    ask_for_a_lease();
    expect_store_sound();
    return 0;
}
