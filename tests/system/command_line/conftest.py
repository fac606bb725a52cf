"""What hbsctl does is shown by builds that have it, even where a test finds its words in a shell or on a terminal."""

import pytest
from gateway import BIN, NO_HBSCTL
from lab import database


@pytest.fixture(scope="package", autouse=True)
def hbsctl_is_there():
    if not database.has_hbsctl(BIN):
        pytest.skip(NO_HBSCTL)
