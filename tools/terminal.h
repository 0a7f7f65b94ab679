// What the tools ask the system about the terminal.
#pragma once

// Columns of the terminal that the standard output goes to; 0 if it goes elsewhere.
[[nodiscard]] int terminal_width();

// Whether someone watches the standard error stream.
[[nodiscard]] bool is_watched();
