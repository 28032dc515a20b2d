// A configuration to read, and to spoil.
#pragma once

#include "KnxStackHost/Configuration/Configuration.h"

#include <gtest/gtest.h>

#include <string>

namespace KnxStackHost {

inline const std::string kFile = "/etc/knx/knxstackd.json";

/// A valid configuration in which one text was replaced by another.
inline std::string Changed(const std::string& part, const std::string& by) {
    std::string text = R"({
  "device": {"individualAddress": "1.1.250", "name": "house"},
  "server": {"address": "127.0.0.1", "port": 3672, "tunnels": ["1.1.251", "1.1.252"]},
  "groupObjects": [
    {"number": 7, "name": "light", "dpt": "1.001", "flags": "CRWTU", "priority": "urgent", "addresses": ["1/2/3", "1/2/4"]},
    {"number": 2, "size": 24, "flags": "CW", "addresses": [], "ownTelegrams": false}, // no type
  ],
  "interfaceObjects": [
    {"type": 50001, "properties": [{"id": 201, "dataType": 17, "value": "40"}, {"id": 202, "dataType": 3, "elements": 2}]}
  ],
  "applicationProgram": {"library": "lib/libprogram.so", "settings": {"DscInstanceId": "KNX"}}
})";
    const auto found = text.find(part);
    EXPECT_NE(std::string::npos, found) << part;
    return text.replace(found, part.size(), by);
}

inline std::string RefusalOf(const std::string& text) {
    try {
        ParseConfiguration(text, kFile);
    } catch (const ConfigurationError& error) {
        return error.what();
    }
    return "accepted";
}

} // namespace KnxStackHost
