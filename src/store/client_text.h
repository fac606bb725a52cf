// Texts of clients and index entries, for the dump and for log messages.
#pragma once

#include <cstddef>
#include <cstdint>

#include <hbs_db.h>

// One client as one line into buffer; cut at size - 1, always terminated. Returns buffer.
char *hbs_client_to_str(const hbs_client *client, char *buffer, size_t size);

// The form used inside the event handlers' messages: the same pieces, but never "HOTSPOT|" (the two
// forms differ on purpose). Returned by value and bounded, so any thread may use it.
struct hbs_client_text {
    char text[512];
};
hbs_client_text hbs_client_log_text(const hbs_client *client);

// Key words as text into buffer; always terminated. Return buffer. A count beyond the words that the kind
// has room for (a scribbled element) is taken as that many.
char *hbs_ip_entry_to_str(const hbs_ip_entry *entry, char *buffer, size_t size);
char *hbs_dhcp_entry_to_str(const hbs_ip_entry *entry, char *buffer, size_t size);
char *hbs_if_entry_to_str(const hbs_if_entry *entry, char *buffer, size_t size);
char *hbs_pri_entry_to_str(const hbs_pri_entry *entry, char *buffer, size_t size);
char *hbs_rule_entry_to_str(const hbs_rule_entry *entry, char *buffer, size_t size);

// The entry texts by value, for one log message.
struct hbs_entry_text {
    char text[256];
};
hbs_entry_text hbs_ip_entry_text(const hbs_ip_entry *entry);
hbs_entry_text hbs_dhcp_entry_text(const hbs_ip_entry *entry);
hbs_entry_text hbs_if_entry_text(const hbs_if_entry *entry);
hbs_entry_text hbs_pri_entry_text(const hbs_pri_entry *entry);
hbs_entry_text hbs_rule_entry_text(const hbs_rule_entry *entry);

// A client's dbpos for a "%p" of a message: those messages name the offset, not an address.
inline const void *hbs_dbpos_for_log(uint32_t dbpos) {
    return reinterpret_cast<const void *>(uintptr_t{dbpos});
}
