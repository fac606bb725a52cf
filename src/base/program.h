// Runs external programs by argument vector: text from outside never meets a shell.
#pragma once

// A program that runs longer is killed. Those that are run here take a second when nobody answers them.
constexpr int HBS_PROGRAM_MILLISECONDS = 3000;

// Runs argv[0] (searched in PATH; argv ends with null) and waits for it. stdin is /dev/null.
// output: descriptor that gets its standard output; -1 = /dev/null. stderr goes to /dev/null.
// Returns the exit status (0-255), or -1 when it could not be run (which a status of 127 says too), was
// killed or took too long.
int hbs_program_run(const char *const argv[], int output);

// Like hbs_program_run, but copies the first `size` - 1 bytes at most of its output into `output`
// (terminated; the rest is drained). Returns as above.
int hbs_program_read(const char *const argv[], char *output, int size);
