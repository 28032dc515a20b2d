// Application data: bytes are a project or have one error, and a project comes back from its own data. The
// input counts once as the data and once as their records, with a right header before them.

#include "Fuzz.h"

#include "ProjectFile/ApplicationData.h"

#include <span>

namespace {

void Run(std::span<const std::uint8_t> data) {
    const auto decoded = ProjectFile::DecodeApplicationData(data, "data");
    Fuzz::Check(static_cast<bool>(decoded) == decoded.errors.empty());
    for (const auto& error : decoded.errors)
        Fuzz::Check(error.starts_with("data: "));
    if (!decoded)
        return;
    const auto encoded = ProjectFile::EncodeApplicationData(*decoded.project);
    Fuzz::Check(encoded.error.empty());
    const auto again = ProjectFile::DecodeApplicationData(encoded.data, "data");
    Fuzz::Check(again && *again.project == *decoded.project);
    Fuzz::Check(ProjectFile::EncodeApplicationData(*again.project).data == encoded.data);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span input(data, size);
    Run(input);
    Run(ProjectFile::SealApplicationData(input));
    return 0;
}
