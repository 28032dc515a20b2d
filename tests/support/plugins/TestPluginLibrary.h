// What every test plug-in library has of its own: its life, and the type of the exceptions that it throws.
#pragma once

#include "TestPluginLink.h"

#include <exception>
#include <string>
#include <utility>

namespace {

struct LibraryLife {
    LibraryLife() { KnxTestLibraryEvent(KNX_TEST_PLUGIN_NAME, "loaded"); }
    ~LibraryLife() { KnxTestLibraryEvent(KNX_TEST_PLUGIN_NAME, "unloaded"); }
};
const LibraryLife s_life;

class PluginFailure : public std::exception {
public:
    explicit PluginFailure(std::string text) : m_text(std::move(text)) {}
    const char* what() const noexcept override { return m_text.c_str(); }

private:
    std::string m_text;
};

/// The result of the call; what it throws comes out as an exception of this library.
template <typename Call>
auto Own(const Call& call) {
    try {
        return call();
    } catch (const std::exception& error) {
        throw PluginFailure(error.what());
    }
}

} // namespace
