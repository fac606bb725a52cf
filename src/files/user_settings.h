// The files of what users set, all of them together.
#pragma once

// Start-up: what a power cut in the middle of an edit left beside the files goes, and so does everybody
// else's access to them.
void hbs_settings_tidy();

// Empties the client file to its version line and deletes the three rule files. Result of the last unlink: 0,
// or -1.
int hbs_nv_reset();
