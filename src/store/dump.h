// The published database, written to the log for diagnosis.
#pragma once

// Logs every client, index entry, instance map and total. Locks for its whole run.
void hbs_db_dump();

// Logs every line of a file as "HOSTBASE: <path> : <line>", lines read 256 bytes at a time. For whoever looks
// for a fault: the daemon itself does not call it.
void hbs_log_file(const char *path);
