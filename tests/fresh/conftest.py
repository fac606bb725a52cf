"""The tests of stage fresh, with what the system tests know of boxes and fresh machines."""

import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.realpath(__file__))), "system"))
