// The end of a tool's standard output.
#pragma once

namespace Tools {

/// One line on standard error: standard output cannot be written, and why. `error` as in errno.
void ReportOutput(const char* tool, int error);

/// Writes what still waits. False, after such a line, when something that was printed is lost.
bool FlushOutput(const char* tool);

} // namespace Tools
