// Words for whatever was thrown.
#pragma once

#include <exception>
#include <string>

namespace KnxStackHost {

/// What is being thrown, for people. Inside a handler only.
inline std::string CurrentExceptionText() {
    try {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "something that is no std::exception";
    }
}

} // namespace KnxStackHost
