"""The fixture of the Linux router's tests."""

import pytest
from router import Router


@pytest.fixture
def router():
    """A box with nothing running; the end of the daemon's log is shown with a failure."""
    box = Router()
    yield box
    print("\n".join(box.log().splitlines()[-60:]))
    box.close()
