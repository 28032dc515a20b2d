// How knxstackctl shows what the host says.
#pragma once

#include <boost/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace KnxStackCtl {

/// The lines of the answer to "status", for people.
std::vector<std::string> StatusLines(const boost::json::object& status);

/// Likewise of the answer to "links".
std::vector<std::string> LinksLines(const boost::json::object& links);

/// A telegram as the group monitor shows it, with its local time in front.
std::string MonitorText(const boost::json::object& telegram);

/// "1 d 02:03:04", without days "02:03:04"
std::string Duration(std::int64_t seconds);

/// The text of a member; "" when there is none.
std::string Text(const boost::json::object& object, const char* name);

} // namespace KnxStackCtl
