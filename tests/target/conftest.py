"""The tests of the machine that script/target makes. Their fixtures are those of the system tests."""

import importlib.util
import os
import sys

SYSTEM = os.path.join(os.path.dirname(os.path.dirname(os.path.realpath(__file__))), "system")

sys.path.insert(0, SYSTEM)
_specification = importlib.util.spec_from_file_location("fixtures_of_the_system_tests", SYSTEM + "/conftest.py")
_fixtures = importlib.util.module_from_spec(_specification)
_specification.loader.exec_module(_fixtures)
gateway, running, living_lan = _fixtures.gateway, _fixtures.running, _fixtures.living_lan
