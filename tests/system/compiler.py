"""What a C compiler makes of the headers in include/."""

import subprocess

from lab import header

HEADERS = "".join(f'#include "{name}"\n' for name in header.FILES)


def compiled(directory, expressions):
    """The values of unsigned expressions, as a C program prints them that is built in the directory."""
    source, program = directory / "program.c", directory / "program"
    prints = "".join(f'    printf("%lu\\n", (unsigned long)({each}));\n' for each in expressions)
    source.write_text(f"#include <stddef.h>\n#include <stdio.h>\n{HEADERS}int main(void) {{\n{prints}}}\n")
    subprocess.run(["cc", "-I", header.INCLUDE, "-o", program, source], check=True)
    printed = subprocess.run([program], capture_output=True, text=True, check=True).stdout
    return [int(line) for line in printed.splitlines()]
