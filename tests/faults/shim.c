/* Stands before what the daemon calls: counts each function's calls by name, has one of them fail once, and records
 * what is done to the settings files.
 *
 *   HBS_FAULT_COUNTS   file of the counts, one "NAME COUNT" a line and how often it was written, every 20 ms
 *   HBS_FAULT          NAME:N, the call that fails, counted from 1; HBS_FAULT_NOTE gets a line when it did
 *   HBS_FAULT_RECORD   file that gets each call which changes something below HBS_FAULT_PLACE
 *
 * What fails is passed over: its arguments are numbers and pointers alike, handed on in their registers, so one shape
 * fits all. Only what the daemon itself calls counts, but for memory, which the C library takes for it. */
#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/syscall.h>

/* The headers' own shapes of what is stood before would be in the way. */
#define O_WRONLY 1
#define O_CREAT 0100
#define O_TRUNC 01000
#define O_APPEND 02000
#define ERROR_SEEN 0x20 /* in the first word of a stream of glibc's, which ferror() looks at */
#define RTLD_NEXT ((void *)-1L)

typedef intptr_t word;
typedef word (*call)(word, word, word, word, word, word);
typedef int (*start)(unsigned long *, void *, void *(*)(void *), void *);

extern void *__libc_malloc(size_t);
extern void *__libc_calloc(size_t, size_t);
extern void *__libc_realloc(void *, size_t);
extern int snprintf(char *, size_t, const char *, ...);
extern int __vfprintf_chk(void *, int, const char *, __builtin_va_list);
extern void __fpurge(void *);
extern long syscall(long, ...);
extern void *dlsym(void *, const char *);
extern char *getenv(const char *);
extern _Noreturn void abort(void);
extern int atoi(const char *);
extern unsigned long strtoul(const char *, char **, int);
extern char *strcpy(char *, const char *), *strchr(const char *, int), *strstr(const char *, const char *);
extern int strcmp(const char *, const char *), strncmp(const char *, const char *, size_t);
extern size_t strlen(const char *);
extern long readlink(const char *, char *, size_t);
typedef struct { long words[8]; } mutex;
extern int pthread_mutex_lock(mutex *), pthread_mutex_unlock(mutex *);

/* NAME, what it gives when it fails, errno then */
#define LIBRARY(X)                                                                                                     \
    X(open64, -1, EMFILE) X(__open64_2, -1, EMFILE) X(fopen64, 0, EMFILE) X(fdopen, 0, ENOMEM)                         \
    X(open_memstream, 0, ENOMEM) X(write, -1, ENOSPC) X(fsync, -1, EIO) X(rename, -1, ENOSPC) X(unlink, -1, EIO)       \
    X(ftruncate64, -1, EIO) X(fstat64, -1, EIO) X(flock, -1, ENOLCK) X(lseek64, -1, EIO) X(fread, 0, EIO)              \
    X(mmap64, -1, ENOMEM) X(posix_fallocate64, ENOSPC, 0) X(timer_create, -1, EAGAIN)        \
    X(timer_settime, -1, EINVAL) X(socket, -1, EMFILE) X(bind, -1, EADDRINUSE) X(setsockopt, -1, ENOBUFS)              \
    X(recvmsg, -1, ENOBUFS) X(sendto, -1, ENOBUFS) X(shmget, -1, ENOSPC) X(shmat, -1, ENOMEM) X(sem_open, 0, EMFILE)   \
    X(ftok, -1, ENOENT) X(inotify_init1, -1, EMFILE) X(inotify_add_watch, -1, ENOSPC) X(pipe2, -1, EMFILE)             \
    X(posix_spawnp, EAGAIN, 0) X(poll, -1, EINTR) X(access, -1, EIO) X(fchmod, -1, EPERM) X(fchown, -1, EPERM)         \
    X(fcntl64, -1, ENOLCK) X(fgets, 0, EIO) X(fflush, -1, ENOSPC) X(fputs, -1, ENOSPC) X(fwrite, 0, ENOSPC)            \
    X(__uflow, -1, EIO) X(getsockname, -1, ENOBUFS) X(getsockopt, -1, ENOBUFS) X(if_indextoname, 0, ENXIO)             \
    X(lstat64, -1, EIO) X(pread64, -1, EIO) X(posix_spawn_file_actions_adddup2, ENOMEM, 0)                             \
    X(posix_spawn_file_actions_addopen, ENOMEM, 0) X(pthread_create, EAGAIN, 0)                                        \
    X(pthread_mutex_timedlock, ETIMEDOUT, 0) X(read, -1, EIO) X(recvfrom, -1, ENOBUFS) X(rmdir, -1, EIO)               \
    X(sem_clockwait, -1, ETIMEDOUT) X(sem_trywait, -1, EAGAIN) X(shmctl, -1, EINVAL) X(system, -1, EAGAIN)             \
    X(waitpid, -1, EINTR) X(clock_nanosleep, EINTR, 0) X(nanosleep, -1, EINTR)
#define PLATFORM(X)                                                                                                    \
    X(COMMONUTILS_file_append, -1, 0) X(COMMONUTILS_file_copy, -1, 0) X(COMMONUTILS_file_write, -1, 0)                 \
    X(DB_GetArray, -1, 0) X(DB_GetByte, 0, 0) X(DB_RetrieveAccess, -1, 0) X(EXTSWT_RegisterLinkStatusCb, -1, 0)        \
    X(GWDB_FLAPLISTCFG_DHCP_INTERVAL_GET, -1, 0) X(GWDB_FLAPLISTCFG_ENABLE_GET, -1, 0)                                 \
    X(GWDB_FLAPLISTCFG_REPORT_PERIOD_GET, -1, 0) X(GWDB_FLAPLISTCFG_WLAN_INTERVAL_GET, -1, 0)                          \
    X(GWDB_XWIFI_GET_ENABLED_IFNAME, -1, 0) X(L2SWITCH_GetUcastMacs, -1, 0) X(LSDDB_GetDevParams, -1, 0)               \
    X(LSDDB_Read, -1, 0) X(MAIN_getSysUpTime, -1, 0) X(NETIF_GetIndex, 0, 0) X(NETIF_GetLanName, -1, 0)                \
    X(NVM_GetByte, 0, 0) X(NVM_RetrieveAccess, -1, 0) X(PCD_api_register_exception_handlers, -1, 0)                    \
    X(PCD_api_send_process_ready, -1, 0) X(PRESENCE_Await, -1, 0) X(ProdDb_GetCmMacAddress, -1, 0)                     \
    X(ProductionDb_RetrieveAccess, -1, 0) X(RNDDB_Get1stHandleParams, -1, 0) X(RNDDB_GetAddress, -1, 0)                \
    X(RNDDB_GetNextHandleParams, -1, 0) X(RNDDB_GetSubnetForAddress, -1, 0) X(RNDDB_Read, -1, 0)                       \
    X(RNDDB_boolGetWithKeyAndIndex, -1, 0) X(RNDDB_inet4AddrGetWithKeyAndIndex, -1, 0) X(SNMPA_LoadObjID, -1, 0)       \
    X(SNMPA_LoadOctets, -1, 0) X(SNMP_NV_Clean, -1, 0) X(SNMP_NV_Doit, -1, 0) X(SNMP_NV_View_2275_Add_Mod, -1, 0)      \
    X(WifiGetSSID, -1, 0) X(extSwitchSearchMac, -1, 0) X(quarn_tr69SendEvent, -1, 0) X(wlan_getAssocDevice, -1, 0)     \
    X(wlan_getAssocDevicesNum, -1, 0) X(wlan_getWpaAuthenticationModes, -1, 0) X(wlan_getWpsResultStatus, -1, 0)       \
    X(wlan_registerQuarnRpc, -1, 0) X(wlan_rpcConnectClient, -1, 0) X(wlan_setWpsCancel, -1, 0)
#define CALLS(X) LIBRARY(X) PLATFORM(X)
/* These are made all the same, and what was still to be written is lost. */
#define CLOSING(X) X(close, -1, EIO) X(fclose, -1, ENOSPC)
/* With more arguments than go in registers. */
#define PRINTING(X) X(__fprintf_chk)
#define MEMORY(X) X(malloc) X(calloc) X(realloc)

#define NUMBER(name, ...) of_##name,
enum { CALLS(NUMBER) CLOSING(NUMBER) PRINTING(NUMBER) MEMORY(NUMBER) CALL_COUNT };
#define NAME(name, ...) #name,
static const char *const names[] = {CALLS(NAME) CLOSING(NAME) PRINTING(NAME) MEMORY(NAME)};

static int counts[CALL_COUNT];
static int failing = -1, failing_at;
static int record_fd = -1;
static char place[64];
static size_t place_length;
static int ready;

/* Where the daemon's own program lies. */
static uintptr_t text_from, text_to;

static int raw_open(const char *path, int flags) {
    return (int)syscall(SYS_openat, -100, path, flags, 0644);
}

static void stop(const char *why) {
    const char *words[] = {"shim: ", why, "\n"};
    for (int i = 0; i < 3; i++)
        (void)!syscall(SYS_write, 2, words[i], strlen(words[i]));
    abort();
}

static int is_daemons(const void *from) {
    return (uintptr_t)from >= text_from && (uintptr_t)from < text_to;
}

static void note(const char *name, const void *from) {
    char line[128];
    int length = snprintf(line, sizeof line, "%s %lx\n", name,
                          is_daemons(from) ? (unsigned long)((uintptr_t)from - text_from) : 0);
    const char *path = getenv("HBS_FAULT_NOTE");
    int fd = path == NULL ? -1 : raw_open(path, O_WRONLY | O_CREAT | O_APPEND);
    if (fd >= 0 && syscall(SYS_write, fd, line, (size_t)length) < 0)
        abort();
    if (fd >= 0)
        syscall(SYS_close, fd);
}

static void write_counts(void) {
    static int written;
    const char *path = getenv("HBS_FAULT_COUNTS");
    char text[64 * (CALL_COUNT + 1)]; /* a name has less than 50 characters */
    size_t length = 0;
    for (int i = 0; i < CALL_COUNT; i++)
        length += (size_t)snprintf(text + length, sizeof text - length, "%s %d\n", names[i], counts[i]);
    length += (size_t)snprintf(text + length, sizeof text - length, "written %d\n", ++written);
    int fd = path == NULL ? -1 : raw_open(path, O_WRONLY | O_CREAT | O_TRUNC);
    if (fd >= 0 && syscall(SYS_write, fd, text, length) < 0)
        abort();
    if (fd >= 0)
        syscall(SYS_close, fd);
}

/* Whether this call is the one that fails. */
static int fails(int number, const void *from) {
    if (!ready)
        return 0;
    int count = __atomic_add_fetch(&counts[number], 1, __ATOMIC_RELAXED);
    if (number != failing || count != failing_at)
        return 0;
    note(names[number], from);
    return 1;
}

static void find_text(void) {
    char line[512], own[256];
    long length = readlink("/proc/self/exe", own, sizeof own - 1);
    own[length > 0 ? length : 0] = 0;
    int fd = raw_open("/proc/self/maps", 0);
    size_t at = 0;
    char c;
    while (fd >= 0 && syscall(SYS_read, fd, &c, 1) == 1) {
        if (c != '\n' && at < sizeof line - 1) {
            line[at++] = c;
            continue;
        }
        line[at] = 0;
        at = 0;
        char *name = strchr(line, '/');
        if (name == NULL || strcmp(name, own) != 0)
            continue;
        char *dash = NULL;
        uintptr_t from = strtoul(line, &dash, 16), to = strtoul(dash + 1, NULL, 16);
        text_from = text_from == 0 ? from : text_from;
        text_to = to;
    }
    if (fd >= 0)
        syscall(SYS_close, fd);
}

static void *keep_counts(void *unused) {
    for (;;) {
        struct { long s, ns; } pause = {0, 20000000};
        syscall(SYS_nanosleep, &pause, NULL);
        write_counts();
    }
    return unused;
}

/* Only in the daemon: programs that it starts have the shim, too. */
__attribute__((constructor)) static void begin(void) {
    find_text();
    char own[256] = "";
    if (readlink("/proc/self/exe", own, sizeof own - 1) <= 0 || strstr(own, "gw_hostbase") == NULL)
        return;
    const char *fault = getenv("HBS_FAULT"), *record = getenv("HBS_FAULT_RECORD");
    for (int i = 0; fault != NULL && i < CALL_COUNT; i++) {
        size_t length = strlen(names[i]);
        if (strncmp(fault, names[i], length) == 0 && fault[length] == ':') {
            failing = i;
            failing_at = atoi(fault + length + 1);
        }
    }
    if (record != NULL) {
        record_fd = raw_open(record, O_WRONLY | O_CREAT | O_APPEND);
        place_length = strlen(strcpy(place, getenv("HBS_FAULT_PLACE")));
    }
    unsigned long thread;
    if (getenv("HBS_FAULT_COUNTS") != NULL)
        (void)((start)dlsym(RTLD_NEXT, "pthread_create"))(&thread, NULL, keep_counts, NULL);
    ready = 1;
}

/* --- what is recorded: one line for each change, in the order in which the kernel saw them -------------------- */

static mutex record_mutex;

static int is_recorded(const char *path) {
    return record_fd >= 0 && strncmp(path, place, place_length) == 0;
}

static int path_of(int fd, char *path, size_t size) {
    char link[64];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    long length = readlink(link, path, size - 1);
    path[length > 0 ? length : 0] = 0;
    return is_recorded(path);
}

static void record(const char *what, const char *path, const char *other, const unsigned char *data, long size) {
    static char line[1 << 20];
    if (data != NULL && (size_t)size > (sizeof line - 1024) / 2)
        stop("a write is too long for the record");
    size_t length = (size_t)snprintf(line, sizeof line, "%s %s %s %ld ", what, path, other, data == NULL ? size : 0);
    for (long i = 0; data != NULL && i < size; i++)
        length += (size_t)snprintf(line + length, 3, "%02x", data[i]);
    line[length++] = '\n';
    if (syscall(SYS_write, record_fd, line, length) != (long)length)
        abort();
}

static void record_result(int number, word result, const word *a) {
    char path[256]; /* of the settings files, all far shorter */
    if (number == of_open64 && (a[1] & O_CREAT) != 0 && is_recorded((const char *)a[0]))
        record("create", (const char *)a[0], "-", NULL, 0);
    if (number == of_write && path_of((int)a[0], path, sizeof path))
        record("write", path, "-", (const unsigned char *)a[1], result);
    if (number == of_fsync && path_of((int)a[0], path, sizeof path))
        record("sync", path, "-", NULL, 0);
    if (number == of_ftruncate64 && path_of((int)a[0], path, sizeof path))
        record("truncate", path, "-", NULL, a[1]);
    if (number == of_rename && is_recorded((const char *)a[1]))
        record("rename", (const char *)a[0], (const char *)a[1], NULL, 0);
    if (number == of_unlink && is_recorded((const char *)a[0]))
        record("unlink", (const char *)a[0], "-", NULL, 0);
}

/* The stream among the arguments of a call, which remembers that it failed; null: none. */
static int *stream_of(int number, const word *a) {
    switch (number) {
    case of_fread:
    case of_fwrite:
        return (int *)a[3];
    case of_fgets:
        return (int *)a[2];
    case of_fputs:
        return (int *)a[1];
    case of_fflush:
    case of___uflow:
        return (int *)a[0];
    default:
        return NULL;
    }
}

static word pass(int number, call real, const word *a, const void *from, word failure, int reason) {
    if (is_daemons(from) && fails(number, from)) {
        int *stream = stream_of(number, a);
        if (stream != NULL)
            *stream |= ERROR_SEEN;
        if (reason != 0)
            errno = reason;
        return failure;
    }
    int changes = number == of_open64 || number == of_write || number == of_fsync || number == of_ftruncate64 ||
                  number == of_rename || number == of_unlink;
    if (record_fd < 0 || !changes)
        return real(a[0], a[1], a[2], a[3], a[4], a[5]);
    /* A creation is recorded when the file was not there, before anything can be written to it. */
    int there = 1;
    if (number == of_open64 && (a[1] & O_CREAT) != 0)
        there = syscall(SYS_faccessat, -100, a[0], 0) == 0;
    pthread_mutex_lock(&record_mutex);
    word result = real(a[0], a[1], a[2], a[3], a[4], a[5]);
    int kept = errno;
    if ((int)result >= 0 && !(number == of_open64 && there))
        record_result(number, result, a);
    errno = kept;
    pthread_mutex_unlock(&record_mutex);
    return result;
}

#define DEFINE(name, failure, reason)                                                                                  \
    __attribute__((visibility("default"))) word name(word a, word b, word c, word d, word e, word f);                  \
    word name(word a, word b, word c, word d, word e, word f) {                                                        \
        static call real;                                                                                              \
        if (real == NULL)                                                                                              \
            real = (call)dlsym(RTLD_NEXT, #name);                                                                      \
        const word arguments[] = {a, b, c, d, e, f};                                                                   \
        return pass(of_##name, real, arguments, __builtin_return_address(0), failure, reason);                         \
    }

CALLS(DEFINE)

static word close_all_the_same(int number, call real, word what, const void *from, int reason) {
    const int fail = is_daemons(from) && fails(number, from);
    if (fail && number == of_fclose)
        __fpurge((void *)what);
    word result = real(what, 0, 0, 0, 0, 0);
    if (!fail)
        return result;
    errno = reason;
    return -1;
}

#define DEFINE_CLOSING(name, failure, reason)                                                                          \
    __attribute__((visibility("default"))) word name(word what);                                                      \
    word name(word what) {                                                                                             \
        static call real;                                                                                              \
        if (real == NULL)                                                                                              \
            real = (call)dlsym(RTLD_NEXT, #name);                                                                      \
        return close_all_the_same(of_##name, real, what, __builtin_return_address(0), reason);                         \
    }

CLOSING(DEFINE_CLOSING)

__attribute__((visibility("default"))) int __fprintf_chk(void *stream, int flag, const char *format, ...) {
    const void *from = __builtin_return_address(0);
    if (is_daemons(from) && fails(of___fprintf_chk, from)) {
        *(int *)stream |= ERROR_SEEN;
        errno = ENOSPC;
        return -1;
    }
    __builtin_va_list arguments;
    __builtin_va_start(arguments, format);
    int result = __vfprintf_chk(stream, flag, format, arguments);
    __builtin_va_end(arguments);
    return result;
}

__attribute__((visibility("default"))) void *malloc(size_t size) {
    return fails(of_malloc, __builtin_return_address(0)) ? (errno = ENOMEM, NULL) : __libc_malloc(size);
}

__attribute__((visibility("default"))) void *calloc(size_t count, size_t size) {
    return fails(of_calloc, __builtin_return_address(0)) ? (errno = ENOMEM, NULL) : __libc_calloc(count, size);
}

__attribute__((visibility("default"))) void *realloc(void *old, size_t size) {
    return fails(of_realloc, __builtin_return_address(0)) ? (errno = ENOMEM, NULL) : __libc_realloc(old, size);
}
