// The serve command; where it is not built there is none.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/session.h"

void add_serve(CLI::App *app, session &run);
