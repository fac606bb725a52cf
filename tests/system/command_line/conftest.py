"""What hbsctl does is shown by builds that have it, even where a test finds its words in a shell or on a terminal."""

import os

import pytest
from gateway import BIN


@pytest.fixture(scope="package", autouse=True)
def hbsctl_is_there():
    if not os.access(f"{BIN}/hbsctl", os.X_OK):
        pytest.skip("this build has no hbsctl")
