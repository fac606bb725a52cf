// SNMP agent library: its view storage, as lines in the journal, and the memory of its structures.
#include <cstdlib>
#include <cstring>

#include <snmpa.h>

#include "common_hooks.h"

const char SnmpaName[] = "snmpa";

namespace {

int store(const char *call, const char *what) {
    int result = 0;
    if (common_call_fails(call, &result))
        return result;
    common_line line;
    common_line_add(&line, "snmp %s", what);
    common_note_effect(&line);
    return 0;
}

// A copy in memory of its own, or null: no memory, or the call is told to fail.
void *copy_of(const char *call, const void *data, size_t size) {
    int result = 0;
    if (data == nullptr || common_call_fails(call, &result))
        return nullptr;
    void *copy = malloc(size);
    if (copy != nullptr)
        memcpy(copy, data, size);
    return copy;
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

int SNMPA_LoadObjID(snmpa_oid *oid, const uint32_t *arcs, uint32_t count) {
    if (oid == nullptr)
        return -1;
    oid->arcs = static_cast<uint32_t *>(copy_of("SNMPA_LoadObjID", arcs, sizeof *arcs * count));
    oid->count = oid->arcs == nullptr ? 0 : count;
    return oid->arcs == nullptr ? -1 : 0;
}

int SNMPA_LoadOctets(snmpa_octets *octets, const uint8_t *bytes, uint32_t length) {
    if (octets == nullptr)
        return -1;
    octets->bytes = static_cast<uint8_t *>(copy_of("SNMPA_LoadOctets", bytes, length));
    octets->length = octets->bytes == nullptr ? 0 : length;
    return octets->bytes == nullptr ? -1 : 0;
}

void Clean_Obj_ID(snmpa_oid *oid) {
    if (oid == nullptr)
        return;
    free(oid->arcs);
    oid->arcs = nullptr;
    oid->count = 0;
}

void SNMPA_CleanOctets(snmpa_octets *octets) {
    if (octets == nullptr)
        return;
    free(octets->bytes);
    octets->bytes = nullptr;
    octets->length = 0;
}
