#include "files/client_removal.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "base/paths.h"
#include "files/client_leases.h"
#include "files/rule_files.h"
#include "store/clients.h"
#include "store/publish.h"

namespace {

void delete_file(const char name[HBS_LEASE_FILE_SIZE]) {
    const size_t length = strnlen(name, HBS_LEASE_FILE_SIZE);
    if (length == 0 || length == HBS_LEASE_FILE_SIZE || memchr(name, '/', length) != nullptr)
        return;
    if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0)
        return;
    char path[sizeof HBS_SCRATCH_DIR "/" + HBS_LEASE_FILE_SIZE];
    (void)snprintf(path, sizeof path, HBS_SCRATCH_DIR "/%s", name);
    (void)unlink(path);
}

void delete_files(const hbs_client_remains *remains) {
    delete_file(remains->lease_file);
    delete_file(remains->lease_file6);
}

} // namespace

void hbs_client_drop_files(const hbs_client_remains *remains) {
    hbs_lease_delete_client_static(remains->mac);
    delete_files(remains);
}

namespace {

// With more working copies than slots, publishing one may delete another: the next client is taken
// only afterwards.
void publish_all_anew() {
    for (hbs_client *client = hbs_client_first(); client != nullptr; client = hbs_client_next(client)) {
        hbs_set_flags(client, 0, HBS_CHANGED_ADDRESS);
        hbs_publish(client);
    }
}

} // namespace

// The client counter stays as it is here, unlike in a reclaim.
void hbs_remove_client(hbs_client *client) {
    if (!hbs_is_working_copy(client))
        return;
    const hbs_client_remains remains = hbs_client_remains_of(client);
    hbs_lease_delete_client_static(remains.mac);
    hbs_shm_flush();
    delete_files(&remains);
    hbs_client_free(client);
    publish_all_anew();
    hbs_nv_load_rules();
}
