// SNMP agent library: its view storage, as lines in the journal.
#include <cstdlib>

#include <snmpa.h>

#include "host_journal.h"
#include "host_values.h"

const char SnmpaName[] = "snmpa";

namespace {

int store(const char *call, const char *what) {
    int result = 0;
    if (host_call_fails(call, &result))
        return result;
    host_line line;
    host_line_add(&line, "snmp %s", what);
    host_journal_write(&line);
    return 0;
}

} // namespace

int SNMP_NV_View_2275_Add_Mod(int modify) {
    if (modify != 0 && modify != 1)
        return -1;
    return store("SNMP_NV_View_2275_Add_Mod", modify == 0 ? "view-add" : "view-modify");
}

int SNMP_NV_Clean(void) {
    return store("SNMP_NV_Clean", "view-clean");
}

int SNMP_NV_Doit(void) {
    return store("SNMP_NV_Doit", "view-write");
}

void Clean_Obj_ID(snmpa_oid *oid) {
    if (oid == nullptr)
        return;
    free(oid->arcs);
    oid->arcs = nullptr;
    oid->count = 0;
}
