#include "Helper/File.h"

#include <algorithm>

std::string Helper::File::make_path(std::string directory) {
    const auto isRepeatedSlash = [](char left, char right) { return left == '/' && right == '/'; };
    directory.erase(std::unique(directory.begin(), directory.end(), isRepeatedSlash), directory.end());
    if (directory.size() > 1 && directory.ends_with('/')) {
        directory.pop_back();
    }
    return directory;
}
