// Every place in the file system that the daemon knows, once. Three directories are options of the build
// (runtime and persistent stand in <hbs_db.h>, as readers need them); everything else follows from them. They
// are macros because some places stand in the middle of a text.
#pragma once

#include <hbs_db.h>
#include <hbs_msg.h>

// --- runtime: gone after a restart of the gateway --------------------------------------------------------
#define HBS_SCRATCH_DIR HBS_RUNTIME_DIR "/tmp"
#define HBS_LOCK_FILE HBS_SCRATCH_DIR "/gw_hostbase.lock" // the running daemon holds a record lock on it
#define HBS_FILE_WATCH_PID HBS_SCRATCH_DIR "/file_watch_thread.pid" // the watchdog reads it

// What the DHCP servers write.
#define HBS_DHCPV4_NOTICES HBS_SCRATCH_DIR "/udhcpd.delta"
#define HBS_DHCPV6_NOTICES HBS_RUNTIME_DIR "/lib/dibbler/server-notify.log"
#define HBS_LEASEV6_DATABASE HBS_RUNTIME_DIR "/lib/dibbler/server-AddrMgr.xml"
#define HBS_DYNAMIC_LEASES_BEFORE HBS_RUNTIME_DIR "/lib/misc/landhcps00." // then the LAN address
#define HBS_DYNAMIC_LEASES_AFTER ".leases"
#define HBS_LEASE_RECORD HBS_SCRATCH_DIR "/dhcp_lease_record"

// The daemon's own scratch files.
#define HBS_DHCPV4_NOTICES_COPY HBS_SCRATCH_DIR "/hbs_watch_file.tmp"
#define HBS_DHCPV6_NOTICES_COPY HBS_SCRATCH_DIR "/hbs_watch_file_v6.tmp"
#define HBS_DYNAMIC_LEASES_COPY HBS_SCRATCH_DIR "/dl.tmp"
#define HBS_STATIC_LEASES_COPY HBS_SCRATCH_DIR "/sl.tmp"
#define HBS_MOVED_LEASES HBS_SCRATCH_DIR "/stat_lease.tmp"
#define HBS_NETBIOS_ANSWERS HBS_SCRATCH_DIR "/nbtlist"

// --- persistent: what users set, and the DHCP server's settings ------------------------------------------
#define HBS_CLIENT_FILE HBS_PERSISTENT_DIR "/hostbase.txt"
#define HBS_WHITE_RULES HBS_PERSISTENT_DIR "/client_white_rules.txt"
#define HBS_BLACK_RULES HBS_PERSISTENT_DIR "/client_black_rules.txt"
#define HBS_TRUSTED_INSTANCES HBS_PERSISTENT_DIR "/client_trusted_device_tr69instance.txt"
#define HBS_USERCONF HBS_PERSISTENT_DIR "/userconf"
#define HBS_STATIC_LEASES_BEFORE HBS_PERSISTENT_DIR "/dhcpd/udhcpd." // then the LAN address
#define HBS_STATIC_LEASES_AFTER ".static_leases"
#define HBS_HOST_RECORDS_AFTER ".host"

// --- vendor: programs of the gateway ---------------------------------------------------------------------
#ifndef HBS_VENDOR_DIR
#define HBS_VENDOR_DIR "/fss/gw"
#endif
#define HBS_NDISC6 HBS_VENDOR_DIR "/bin/ndisc6"

// --- the system's ----------------------------------------------------------------------------------------
#define HBS_TEMPORARY_DIR "/tmp" // any system's, for hbsctl
// Debian's lists of makers (package ieee-data), of MACs' first 24, 28 and 36 bits.
#define HBS_MAKER_LISTS "/usr/share/ieee-data"
#define HBS_PROCESSES "/proc"
#define HBS_NOWHERE "/dev/null"
#ifndef HBS_DOCSIS_BRIDGE
#define HBS_DOCSIS_BRIDGE 1 // 0 where there is none, an option of the build
#endif
#define HBS_BRIDGE_CPE HBS_PROCESSES "/net/dbrctl/cpe"
#define HBS_BRIDGE_DELETE_CPE HBS_PROCESSES "/net/dbrctl/deletecpe"

// --- modes of what other processes use, options of the build as well -------------------------------------
#ifndef HBS_SEGMENT_MODE
#define HBS_SEGMENT_MODE 0777 // not cut by the umask
#endif
#ifndef HBS_SEMAPHORE_MODE
#define HBS_SEMAPHORE_MODE 0666 // cut by the umask
#endif
#ifndef HBS_SOCKET_MODE
#define HBS_SOCKET_MODE 0 // what the umask leaves
#endif
