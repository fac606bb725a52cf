"""script/include_floors finds an include that goes up or round."""

import subprocess

import pytest
from gateway import SCRIPTS


def check(checkout):
    return subprocess.run([f"{SCRIPTS}/include_floors", checkout], capture_output=True, text=True, check=False)


@pytest.fixture
def checkout(tmp_path):
    """A small checkout in which all is well."""
    for path, text in (("src/base/text.h", "#include <hbs_db.h>\n"), ("include/hbs_db.h", "#include <stdint.h>\n"),
                       ("include/hostbase_query.h", "#include <hbs_db.h>\n"), ("platform/include/logger.h", ""),
                       ("src/events/wifi.h", "#include <cstdio>\n\n#include \"base/text.h\"\n")):
        (tmp_path / path).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / path).write_text(text)
    return tmp_path


def test_nothing_is_found_where_all_is_well(checkout):
    done = check(checkout)
    assert (done.returncode, done.stderr) == (0, "")


@pytest.mark.parametrize("path, text, said", [
    ("src/events/wifi.cpp", "#include <hostbase_query.h>\n", "src/events/wifi.cpp includes include/hostbase_query.h"),
    ("src/base/text.cpp", "  #  include \"events/wifi.h\"\n", "src/base/text.cpp includes src/events/wifi.h"),
    ("src/tools/main.cpp", "#include <logger.h>\n", "src/tools/main.cpp includes platform/include/logger.h"),
    ("src/attic/old.cpp", "", "src/attic/old.cpp stands in no place that is known here"),
    ("src/events/wifi.h", "#include \"events/wifi.h\"\n", "circle: src/events/wifi.h -> src/events/wifi.h"),
])
def test_include_that_goes_up_or_round_is_found(checkout, path, text, said):
    (checkout / path).parent.mkdir(exist_ok=True)
    (checkout / path).write_text(text)
    done = check(checkout)
    assert (done.returncode, done.stderr) == (1, said + "\n")
