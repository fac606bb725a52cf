"""What the daemon calls, and which of it never fails in script/faults, each with its reason."""

import re
import subprocess

SHIM = "tests/faults/shim.c"

# Names without what the compiler and the C library put around them (see plain()).
EXEMPT = {
    "it has no failure: what it gives is always an answer, or nothing": """
        Clean_Obj_ID EVENT_Begin EVENT_End LEASES_AreToldAgain LEASES_MayLackTexts NETIF_IsOutward PRESENCE_Ask
        PRESENCE_ByTraffic PRESENCE_IsAnswering PRESENCE_IsSilent PRESENCE_Learned logger_build_send_log_msg
        logger_register_level_cb _exit free geteuid getpid umask tzset""",
    "it only reckons with bytes and texts in memory": """
        inet_ntop inet_pton isspace memchr memcmp memcpy memmem memmove memset qsort snprintf sscanf strcasecmp strchr
        strcmp strcspn strerror strlen strncmp strnlen strrchr strspn strstr strtok_r strtol strtoll strtoul strtoull
        vsnprintf sigaddset sigemptyset localtime_r""",
    "it fails only when what it is given makes no sense, and that is always the same": """
        clock_gettime gettimeofday time sysconf sysinfo signal setvbuf syscall inotify_rm_watch kill timer_delete ferror
        fileno rewind sem_getvalue sem_post""",
    "the C library makes these of what it is given, without memory or a call of the kernel": """
        posix_spawn_file_actions_init posix_spawn_file_actions_destroy posix_spawnattr_init posix_spawnattr_destroy
        posix_spawnattr_setflags posix_spawnattr_setsigdefault posix_spawnattr_setsigmask pthread_attr_init
        pthread_attr_destroy pthread_attr_setdetachstate pthread_attr_setstacksize pthread_cond_init
        pthread_condattr_init pthread_condattr_destroy pthread_condattr_setclock pthread_mutex_init
        pthread_mutexattr_init pthread_mutexattr_destroy pthread_mutexattr_settype""",
    "it waits for a thread of the same process, and a failure is the end of the time": """
        pthread_cond_broadcast pthread_cond_signal pthread_cond_timedwait pthread_cond_wait pthread_mutex_lock
        pthread_mutex_unlock pthread_once pthread_tryjoin_np""",
    "it only tells: of the name of a thread, or on a terminal": "pthread_setname_np perror printf puts",
    "what it reads, the file of a thread's number, is taken for nothing when it is not whole": "fscanf",
    "it is data": "SnmpaName environ stderr stdout",
    "it is called before the program's own code, or after": "libc_start_main cxa_finalize gmon_start__ stack_chk_fail "
                                                            "tls_get_addr errno_location "
                                                            "ITM_deregisterTMCloneTable ITM_registerTMCloneTable "
                                                            "libc_current_sigrtmin",
}


def plain(name):
    """The name that its users write: __memcpy_chk is memcpy, __isoc99_sscanf is sscanf, open64 is open."""
    name = re.sub(r"^_(?=ITM_)|^__(isoc\d+_)?", "", name)
    return re.sub(r"(64)?(_2)?(_chk)?$", "", name)


def imported(binary):
    """What the dynamic linker has to find for it: the names as they stand there."""
    listed = subprocess.run(["nm", "-D", "-u", "--format=posix", binary], stdout=subprocess.PIPE, text=True, check=True)
    return {line.split()[0].partition("@")[0] for line in listed.stdout.splitlines()}


def failing(shim):
    """What the shim has fail, by the names of its lists."""
    with open(shim, encoding="ascii") as file:
        return set(re.findall(r"\bX\((\w+)(?=[,)])", file.read()))


def gaps(names, shim_names):
    """What is wrong with the lists, as texts: each import fails or is exempt, each exempt one is imported."""
    exempt = {name for words in EXEMPT.values() for name in words.split()}
    wrong = [f"{name} is called, and neither fails nor is exempt" for name in sorted(names)
             if name not in shim_names and plain(name) not in exempt]
    wrong += [f"{name} fails, and is not called" for name in sorted(shim_names - names)
              if name not in ("malloc", "calloc", "realloc")]
    wrong += [f"{name} is exempt, and is not called" for name in sorted(exempt - set(map(plain, names)))]
    return wrong + [f"{name} is exempt, and fails" for name in sorted(exempt & set(map(plain, shim_names)))]
