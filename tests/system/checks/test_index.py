"""script/check_index finds what the architecture page names and is not there."""

import subprocess

import pytest
from gateway import SCRIPTS

PAGE = "# Architecture\n\n## Index\n\n| Question | File | Functions |\n|---|---|---|\n"
ROWS = "".join(f"| Question {number}? | `src/base/text.cpp` | `hbs_text` |\n" for number in range(20))
TEXT = "int hbs_used();\n\nint hbs_text(const char *text,\n             int length) {\n    return hbs_used();\n}\n"


def check(checkout):
    return subprocess.run([f"{SCRIPTS}/check_index", checkout], capture_output=True, text=True, check=False)


@pytest.fixture
def checkout(tmp_path):
    """A small checkout in which all is well."""
    for path, text in (("docs/architecture.md", PAGE + ROWS), ("src/base/text.cpp", TEXT)):
        (tmp_path / path).parent.mkdir(parents=True)
        (tmp_path / path).write_text(text)
    return tmp_path


def test_nothing_is_found_where_all_is_well(checkout):
    done = check(checkout)
    assert (done.returncode, done.stderr) == (0, "")


@pytest.mark.parametrize("page, said", [
    (PAGE + ROWS.replace("hbs_text", "hbs_used", 1), "src/base/text.cpp does not define hbs_used"),
    (PAGE + ROWS.replace("text.cpp", "word.cpp", 1), "names src/base/word.cpp, which is not there"),
    (PAGE + ROWS.split("\n", 1)[1], "19 questions, fewer than 20"),
    (PAGE + ROWS + "\nSee `store/publish`.\n", "names store/publish, which is not there"),
    (PAGE + ROWS + "\nSee `text_test.cpp`.\n", "names text_test.cpp, which is not there"),
])
def test_page_that_names_what_is_not_there_is_found(checkout, page, said):
    (checkout / "docs/architecture.md").write_text(page)
    done = check(checkout)
    assert done.returncode == 1
    assert said in done.stderr
