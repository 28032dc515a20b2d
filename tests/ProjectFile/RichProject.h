// Project files for tests of everything that reads and writes projects.
#pragma once

#include "ProjectFile/Project.h"

#include <stdexcept>

/// The project of a text that must be one.
inline std::shared_ptr<const ProjectFile::Project> ProjectOf(const std::string& text) {
    const ProjectFile::LoadResult result = ProjectFile::ParseProject(text, "p.json");
    if (!result) {
        throw std::runtime_error(result.Error());
    }
    return result.project;
}

/// Every member there is, each with another value than its default at least once, and every kind of data
/// point.
inline constexpr const char* kRichProject = R"({
  "version": 1,
  "device": "rich-1.a_b",
  "knx": {
    "identification": "urn",
    "owner": "Other::field::KNX2",
    "timeCos": [{"co": 40, "dpt": "19.001"}, {"co": 41, "dpt": "10.xxx"}, {"co": 65534, "dpt": "11.001"}],
    "translationRange": [900, 910],
    "interfaceObject": 50001,
    "properties": [
      {"id": 201, "name": "time mode", "dataType": 17},
      {"id": 202, "dataType": 255, "elements": 65535}
    ],
    "extendedProperties": [
      {"id": 51, "name": "x \"quoted\"", "dataType": 17, "elements": 2, "objectType": 50002, "instances": 3},
      {"id": 52, "dataType": 0, "objectType": 50002, "instances": 0}
    ]
  },
  "dataPoints": [
    {"id": 1000, "description": "The \u00e4ldest"},
    {"id": 1002, "knx": {"co": 44}},
    {"id": 1003, "description": "", "knx": {"co": {"read": 45}, "event": false, "readInternal": false}},
    {"id": 1004, "knx": {"co": {"write": 46}, "event": true}},
    {"id": 1005, "knx": {"co": {"read": 40, "write": 41}, "event": false}},
    {"id": 4294967294, "name": "Bare", "dpt": "1.001"},
    {"id": 2, "name": "Küche/Licht 1", "dpt": "DPST-9-1", "unit": "K", "description": "line\nbreak", "access": "r",
     "initial": "21.5", "persistent": true, "owner": "someone::else::here", "knx": {"co": {"read": 3, "write": 2}}},
    {"id": 3, "name": "Any", "dpt": "9.xxx", "unit": "", "access": "w", "initial": "0", "owner": "",
     "knx": {"co": {"write": 4}, "event": false}},
    {"id": 4, "name": "Held", "dpt": "16.000", "initial": "\"\"", "knx": {"co": 5, "readInternal": true}},
    {"id": 5, "name": "HeldButOwned", "dpt": "16.001", "owner": "Other::field::KNX2",
     "knx": {"co": {"read": 6}, "readInternal": true}},
    {"id": 6, "name": "Unit", "dpt": "9.001", "unit": "", "owner": ""}
  ]
})";
