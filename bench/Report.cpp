#include "Report.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>

namespace Bench {

Report& MapReport(const std::string& path) {
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0 || ftruncate(file, sizeof(Report)) != 0)
        throw std::runtime_error(path + ": cannot be made");
    void* const memory = mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (memory == MAP_FAILED)
        throw std::runtime_error(path + ": cannot be mapped");
    return *static_cast<Report*>(memory); // zeros are a valid Report
}

} // namespace Bench
