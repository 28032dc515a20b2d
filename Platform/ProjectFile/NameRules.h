// How devices, data points and applications may be called.
#pragma once

#include <string>
#include <string_view>

namespace ProjectFile {

/// What is wrong with the device part of a URN; "" when nothing is.
std::string DeviceFault(std::string_view device);

/// What is wrong with a data point name; "" when nothing is.
std::string NameFault(std::string_view name);

/// What is wrong with one of the three parts of an identity; "" when nothing is. A part stands in the name of
/// a directory, so it has 1 to 64 letters, digits, '.', '_' and '-'.
std::string IdentityPartFault(std::string_view part);

/// True for "name::type::instance" with three such parts.
bool IsIdentity(std::string_view text);

} // namespace ProjectFile
