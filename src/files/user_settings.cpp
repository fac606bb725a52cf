#include "files/user_settings.h"

#include <unistd.h>

#include "base/line_edit.h"
#include "base/paths.h"
#include "files/client_file.h"
#include "gateway/static_leases.h"

void hbs_settings_tidy() {
    constexpr const char *paths[] = {HBS_CLIENT_FILE, HBS_WHITE_RULES, HBS_BLACK_RULES,
                                     HBS_TRUSTED_INSTANCES};
    for (const char *path : paths) {
        hbs_file_clear_leftover(path);
        hbs_file_make_private(path);
    }
    hbs_lease_clear_leftovers();
}

int hbs_nv_reset() {
    hbs_nv_forget_clients();
    (void)unlink(HBS_BLACK_RULES);
    (void)unlink(HBS_WHITE_RULES);
    const int result = unlink(HBS_TRUSTED_INSTANCES);
    hbs_directory_sync(HBS_TRUSTED_INSTANCES);
    return result;
}
