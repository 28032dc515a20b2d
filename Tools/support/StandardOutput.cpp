#include "Tools/support/StandardOutput.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <system_error>

namespace Tools {

void ReportOutput(const char* tool, int error) {
    fmt::print(stderr, "{}: standard output cannot be written: {}\n", tool,
               std::generic_category().message(error));
}

bool FlushOutput(const char* tool) {
    std::cout.flush();
    if (std::cout.good() && std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return true;
    ReportOutput(tool, errno);
    return false;
}

} // namespace Tools
