// Names for the values of a parameterised test, so that a failure says which one it was.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

/// The last argument of INSTANTIATE_TEST_SUITE_P: one name for each value, in the order of the values.
inline auto NamesInOrder(std::vector<std::string> names) {
    return [names = std::move(names)](const auto& info) { return names.at(info.index); };
}

} // namespace TestSupport
