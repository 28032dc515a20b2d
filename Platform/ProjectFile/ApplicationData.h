// Application data: a project in the few bytes that a download can bring into a device.
#pragma once

#include "ProjectFile/Project.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace ProjectFile {

/// The format is described in docs/formats/application-data.md. Bytes behind the length that the header
/// names are ignored: a device's memory is often longer than what is in it. `name` is what messages call the
/// data.
///
/// The project is checked as a project file is. An error is "name: byte N: cause" when the data themselves
/// are at fault, and "name: place: cause" with a JSON pointer into the project file they stand for when the
/// project is. Never throws for what the data hold. Any thread.
LoadResult DecodeApplicationData(std::span<const std::uint8_t> data, const std::string& name);

/// What came of encoding.
struct EncodeResult {
    std::vector<std::uint8_t> data; ///< empty when the project was refused
    std::string error;              ///< why, in one sentence; "" otherwise
};

/// The data that DecodeApplicationData() makes an equal project of. Refuses a text that is too long for a
/// record. Equal projects give equal data. Any thread.
EncodeResult EncodeApplicationData(const Project& project);

/// `records` behind the header that belongs to them: for whoever writes records of their own.
std::vector<std::uint8_t> SealApplicationData(std::span<const std::uint8_t> records);

} // namespace ProjectFile
