"""Where the daemon has its files: at the gateway's places, or, in the build "linux", at those of a Linux router.

HBS_BUILD names the build, as for the programs.
"""

import os

# A machine that is emulated is given so much more time for everything.
PATIENCE = float(os.environ.get("HBS_PATIENCE", "1"))
BUILD = os.environ.get("HBS_BUILD", "default")
LINUX = BUILD == "linux"
# What runs programs of a machine that is not this one, before their names; the kernel's netlink is not to be had by it.
EMULATOR = ("qemu-ppc",) if BUILD == "ppc32" else ()
# Of the daemon's numbers, as the module struct spells it.
BYTE_ORDER = ">" if BUILD == "ppc32" else "="
RUNTIME = "/run/gw_hostbase" if LINUX else "/var"
PERSISTENT = "/var/lib/gw_hostbase" if LINUX else "/nvram/8"
# What that build's compiler is told besides the headers.
OPTIONS = {"HBS_RUNTIME_DIR": RUNTIME, "HBS_PERSISTENT_DIR": PERSISTENT}
SETTINGS = "/etc/gw_hostbase/linux.conf"
