// How devices, data points and applications may be called.
#pragma once

#include <string>
#include <string_view>

namespace ProjectFile {

/// What is wrong with the device part of a URN; "" when nothing is.
std::string DeviceFault(std::string_view device);

/// What is wrong with a data point name; "" when nothing is.
std::string NameFault(std::string_view name);

/// True for "name::type::instance" with three parts that are not empty.
bool IsIdentity(std::string_view text);

} // namespace ProjectFile
