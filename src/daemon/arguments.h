// The command line: the daemon takes no arguments but the two that only ask.
#pragma once

// Answers --help and --version on standard output, anything else with the usage on standard error. Returns
// the status to end with, or -1 when there are no arguments.
int hbs_answer_arguments(int count, char *const words[]);
