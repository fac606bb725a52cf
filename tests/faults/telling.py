"""Which calls' failures the daemon has to tell of, each time, and of which it may be silent, with the reason."""

TOLD = set("""
    write fsync rename open_memstream fread fcntl64 timer_create timer_settime socket bind shmget shmat shmctl sem_open
    ftok inotify_init1 inotify_add_watch LSDDB_GetDevParams MAIN_getSysUpTime RNDDB_boolGetWithKeyAndIndex""".split())

SILENT = {
    "a file that cannot be had or read is told of at most places, else tried again, or as one that is not there": """
        open64 __open64_2 fopen64 fdopen flock fstat64 lstat64 access lseek64 pread64 read fgets __uflow unlink rmdir
        close fclose fflush fwrite fputs __fprintf_chk""",
    "without memory the old contents stay, which is told of for a file; the rest is tried with the next event": """
        malloc calloc realloc""",
    "the file has its contents all the same, and at most another owner or mode": "fchmod fchown",
    "it is called again at once, or with the next event": """
        poll recvfrom recvmsg nanosleep clock_nanosleep waitpid sem_clockwait sem_trywait pthread_create
        pthread_mutex_timedlock""",
    "only how often things happened is not seen from outside": "mmap64 posix_fallocate64",
    "what could not be emptied is told of, but for the numbers of how often things happened": "ftruncate64",
    "a socket works on as it is": "setsockopt getsockopt getsockname",
    "an answer or an event that cannot be handed on is lost, and who asked asks again": "sendto quarn_tr69SendEvent",
    "who is looked for by another program or name counts as not found, and is looked for again": """
        pipe2 posix_spawnp posix_spawn_file_actions_adddup2 posix_spawn_file_actions_addopen system if_indextoname
        NETIF_GetIndex NETIF_GetLanName PRESENCE_Await""",
    "a value of the gateway that cannot be had is as one that is not set": """
        DB_GetArray DB_GetByte DB_RetrieveAccess GWDB_FLAPLISTCFG_DHCP_INTERVAL_GET GWDB_FLAPLISTCFG_ENABLE_GET
        GWDB_FLAPLISTCFG_REPORT_PERIOD_GET GWDB_FLAPLISTCFG_WLAN_INTERVAL_GET GWDB_XWIFI_GET_ENABLED_IFNAME LSDDB_Read
        NVM_GetByte NVM_RetrieveAccess ProdDb_GetCmMacAddress ProductionDb_RetrieveAccess RNDDB_Get1stHandleParams
        RNDDB_GetAddress RNDDB_GetNextHandleParams RNDDB_GetSubnetForAddress RNDDB_Read
        RNDDB_inet4AddrGetWithKeyAndIndex L2SWITCH_GetUcastMacs WifiGetSSID extSwitchSearchMac wlan_getAssocDevice
        wlan_getAssocDevicesNum wlan_getWpaAuthenticationModes wlan_getWpsResultStatus""",
    "the gateway's other programs tell of it themselves, where they take no notice of the daemon": """
        EXTSWT_RegisterLinkStatusCb PCD_api_register_exception_handlers PCD_api_send_process_ready SNMPA_LoadObjID
        SNMPA_LoadOctets SNMP_NV_Clean SNMP_NV_Doit SNMP_NV_View_2275_Add_Mod wlan_registerQuarnRpc
        wlan_rpcConnectClient wlan_setWpsCancel COMMONUTILS_file_append COMMONUTILS_file_copy COMMONUTILS_file_write""",
}


def unsorted(shim_names):
    """Functions of which neither or both is said, or which cannot fail, as texts."""
    silent = [name for names in SILENT.values() for name in names.split()]
    wrong = [f"{name}: is its failure told of, or not?" for name in sorted(shim_names ^ {*TOLD, *silent})]
    return wrong + [f"{name} stands there twice" for name in sorted(TOLD & set(silent))]
