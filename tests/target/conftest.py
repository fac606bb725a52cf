"""The tests of the machine that script/target makes. Their fixtures are those of the system tests."""

import os
import runpy
import sys

SYSTEM = os.path.join(os.path.dirname(os.path.dirname(os.path.realpath(__file__))), "system")

sys.path.insert(0, SYSTEM)
_fixtures = runpy.run_path(SYSTEM + "/conftest.py")
gateway, running, living_lan = (_fixtures[name] for name in ("gateway", "running", "living_lan"))
