#include "gateway/hotspot.h"

#include <cstring>

void hbs_hotspot_read(hbs_hotspot_names *names) {
    for (int group = 0; group < GWDB_XWIFI_GROUPS; ++group) {
        gwdb_xwifi_names *of_group = &names->group[group];
        *of_group = {};
        (void)GWDB_XWIFI_GET_ENABLED_IFNAME(group, of_group);
    }
}

bool hbs_hotspot_has(const hbs_hotspot_names *names, const char *ifname) {
    if (ifname[0] == '\0')
        return false;
    for (const gwdb_xwifi_names &group : names->group)
        for (const char(&name)[GWDB_XWIFI_NAME_SIZE] : group.name)
            if (strncmp(name, ifname, GWDB_XWIFI_NAME_SIZE) == 0)
                return true;
    return false;
}

bool hbs_is_hotspot_interface(const char *ifname) {
    static hbs_hotspot_names names; // 4 KB, too much for a small thread stack; callers hold hbs_list_mutex
    hbs_hotspot_read(&names);
    return hbs_hotspot_has(&names, ifname);
}
