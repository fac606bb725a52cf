// The text of page.html, which the build makes a text of the program.
#pragma once

// With places for what changes: {{data}}, {{policy}}, {{nonce}} and {{live}}.
extern const char *const page_template;
