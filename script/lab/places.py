"""Where the daemon has its files: at the gateway's places, or, in the build "linux", at those of a Linux router.

HBS_BUILD names the build, as for the programs.
"""

import os

LINUX = os.environ.get("HBS_BUILD") == "linux"
RUNTIME = "/run/gw_hostbase" if LINUX else "/var"
PERSISTENT = "/var/lib/gw_hostbase" if LINUX else "/nvram/8"
# What that build's compiler is told besides the headers.
OPTIONS = {"HBS_RUNTIME_DIR": RUNTIME, "HBS_PERSISTENT_DIR": PERSISTENT}
SETTINGS = "/etc/gw_hostbase/linux.conf"
