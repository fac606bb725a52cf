"""script/check_style finds what is spelled otherwise than everywhere."""

import subprocess

import pytest
from gateway import SCRIPTS

SOURCE = """#include "base/text.h"

namespace {

constexpr int MOST = 3;
constexpr row rows[] = {{1}};
constexpr const char *names[] = {"a"};

void count() {
    static int calls;
    constexpr int step = 1;
    calls += step;
    memset(&calls, 0, MOST);
}

} // namespace
"""


def check(checkout, text):
    (checkout / "src/base").mkdir(parents=True)
    (checkout / "src/base/text.cpp").write_text(text)
    return subprocess.run([f"{SCRIPTS}/check_style", checkout], capture_output=True, text=True, check=False)


def test_one_spelling_passes(tmp_path):
    done = check(tmp_path, SOURCE)
    assert (done.returncode, done.stdout) == (0, "style: 1 files of one spelling\n")


@pytest.mark.parametrize("line, said", [
    ("static void help() {}", "anonymous namespace"),
    ("static int calls;", "anonymous namespace"),
    ("constexpr int most = 3;", "capitals"),
    ("constexpr const char *name = nullptr;", "capitals"),
    ("void f() { std::memcpy(a, b, 1); }", "plain names"),
    ("int g() { return std::strlen(a); }", "plain names"),
])
def test_another_spelling_is_found_with_its_line(tmp_path, line, said):
    done = check(tmp_path, SOURCE + line + "\n")
    assert done.returncode == 1
    assert f"src/base/text.cpp:{len(SOURCE.splitlines()) + 1}: " in done.stdout
    assert said in done.stdout


def test_function_that_hides_that_of_a_header_is_found(tmp_path):
    tools = tmp_path / "src/tools"
    tools.mkdir(parents=True)
    (tools / "words.h").write_text("std::vector<std::string> keys_of(const std::string &bytes);\n")
    (tools / "lists.cpp").write_text("namespace {\n\nbool is_key(int key) {\n    return key > 0;\n}\n"
                                     "json keys_of(int count) {\n    return count;\n}\n\n} // namespace\n")
    (tools / "words.cpp").write_text("std::vector<std::string> keys_of(const std::string &bytes) {\n}\n")
    done = check(tmp_path, SOURCE)
    assert (done.returncode, done.stdout) == (
        1, "src/tools/lists.cpp:6: keys_of hides that of src/tools/words.h from the files behind\n")


def test_folder_without_sources_does_not_pass(tmp_path):
    done = subprocess.run([f"{SCRIPTS}/check_style", tmp_path], capture_output=True, text=True, check=False)
    assert done.returncode == 1
