"""What new-platform writes is called, call by call: each returns the failure that its header names, and leaves the
caller's variables alone but for those that the header says it sets."""

import ctypes
import glob
import subprocess

import pytest

from gateway import SCRIPTS
from lab import seam

# What each call gives when it cannot do what it is asked for, as platform/include says it.
MINUS_ONE = {
    "COMMONUTILS_file_write", "COMMONUTILS_file_append", "COMMONUTILS_file_copy", "DB_RetrieveAccess", "DB_GetArray",
    "EXTSWT_RegisterLinkStatusCb", "extSwitchSearchMac", "LSDDB_GetDevParams", "NETIF_GetLanName",
    "NVM_RetrieveAccess", "PCD_api_register_exception_handlers", "PCD_api_send_process_ready", "PRESENCE_Await",
    "ProductionDb_RetrieveAccess", "ProdDb_GetCmMacAddress", "RNDDB_Get1stHandleParams", "RNDDB_GetNextHandleParams",
    "RNDDB_GetAddress", "RNDDB_GetSubnetForAddress", "RNDDB_boolGetWithKeyAndIndex",
    "RNDDB_inet4AddrGetWithKeyAndIndex", "SNMP_NV_View_2275_Add_Mod", "SNMP_NV_Clean", "SNMP_NV_Doit",
    "SNMPA_LoadObjID", "SNMPA_LoadOctets", "MAIN_getSysUpTime", "quarn_tr69SendEvent"}
NEGATIVE = {"L2SWITCH_GetUcastMacs"}
NOT_ZERO = {
    "GWDB_FLAPLISTCFG_ENABLE_GET", "GWDB_FLAPLISTCFG_DHCP_INTERVAL_GET", "GWDB_FLAPLISTCFG_WLAN_INTERVAL_GET",
    "GWDB_FLAPLISTCFG_REPORT_PERIOD_GET", "GWDB_XWIFI_GET_ENABLED_IFNAME", "LSDDB_Read", "RNDDB_Read",
    "wlan_rpcConnectClient", "wlan_registerQuarnRpc", "wlan_getAssocDevicesNum", "wlan_getAssocDevice",
    "wlan_getWpsResultStatus", "wlan_setWpsCancel", "wlan_getWpaAuthenticationModes", "WifiGetSSID"}
ZERO = {"DB_GetByte", "LEASES_MayLackTexts", "LEASES_AreToldAgain", "NETIF_IsOutward", "NETIF_GetIndex", "NVM_GetByte",
        "PRESENCE_ByTraffic", "PRESENCE_IsSilent"}
ONE = {"PRESENCE_IsAnswering"}
NOTHING = {"EVENT_Begin", "EVENT_End", "logger_register_level_cb", "logger_build_send_log_msg", "PRESENCE_Learned",
           "PRESENCE_Ask", "Clean_Obj_ID", "SNMPA_CleanOctets"}
# The bytes that become 0: at the beginning of which variables, by their place among the parameters, and how many.
SET_TO_ZERO = {"extSwitchSearchMac": {1: 2, 2: 4}, "SNMPA_LoadObjID": {0: 4}, "SNMPA_LoadOctets": {0: 4},
               "Clean_Obj_ID": {0: 4}, "SNMPA_CleanOctets": {0: 4}}
PARAMETERS = 4
LONGEST = 8192  # the variables of a caller
UNTOUCHED = b"\xa5" * LONGEST
RESULTS = [(MINUS_ONE, lambda result: result == -1), (NEGATIVE, lambda result: result < 0),
           (NOT_ZERO, lambda result: result != 0), (ZERO, lambda result: result == 0),
           (ONE, lambda result: result == 1)]


@pytest.fixture(name="stubs", scope="module")
def compiled_stubs(tmp_path_factory):
    port = tmp_path_factory.mktemp("stubs") / "port"
    subprocess.run([f"{SCRIPTS}/new-platform", port], check=True, stdout=subprocess.DEVNULL)
    library = port / "stubs.so"
    subprocess.run(["cc", "-shared", "-fPIC", "-D_GNU_SOURCE", f"-I{seam.INCLUDE}", "-o", library,
                    *glob.glob(f"{port}/*.c")], check=True)
    return ctypes.CDLL(str(library))


def test_the_table_has_all_calls():
    functions = [call for call in seam.calls() if call.parameters is not None]
    tables = [names for names, _ in RESULTS] + [NOTHING]
    assert sorted(call.name for call in functions) == sorted(name for names in tables for name in names)
    assert {call.name for call in functions if call.type == "void"} == NOTHING
    assert all(call.parameters.count(",") < PARAMETERS for call in functions)


@pytest.mark.parametrize("name, is_failure", [(name, check) for names, check in RESULTS for name in sorted(names)]
                         + [(name, None) for name in sorted(NOTHING)])
def test_a_stub_returns_the_failure_that_its_header_names(stubs, name, is_failure):
    call = getattr(stubs, name)
    call.restype = {"DB_GetByte": ctypes.c_uint8, "NVM_GetByte": ctypes.c_uint8}.get(name, ctypes.c_int)
    variables = [ctypes.create_string_buffer(UNTOUCHED, LONGEST) for _ in range(PARAMETERS)]
    result = call(*variables)
    assert is_failure is None or is_failure(result), result
    zeroed = SET_TO_ZERO.get(name, {})
    for place, variable in enumerate(variables):
        count = zeroed.get(place, 0)
        assert variable.raw == bytes(count) + UNTOUCHED[count:], f"parameter {place}"


@pytest.mark.parametrize("comment, result", [
    ("Name of it. Returns 0, or -1 when there is none.", -1), ("Number of it. Returns 0 when there is none.", 0),
    ("Whether it is. Returns 1 or 0; 0 when that cannot be told.", 0),
    ("Whether it is. Returns 1 or 0; 1 when that cannot be told.", 1)])
def test_a_failure_is_read_from_the_words_of_the_header(comment, result):
    assert seam.failed_result(seam.Call("some.h", "SOME_Call", "int", "void", comment)) == result


def test_a_header_that_names_no_failure_is_told():
    with pytest.raises(seam.SeamError, match="some.h does not name the failure of SOME_Call"):
        seam.failed_result(seam.Call("some.h", "SOME_Call", "int", "void", "Number of it."))
