// A directory for one test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace TestSupport {

/// An empty directory of its own, removed with everything in it at the end.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string path = (std::filesystem::temp_directory_path() / "knx-test-XXXXXX").string();
        if (mkdtemp(path.data()) == nullptr)
            throw std::runtime_error("no temporary directory: " + path);
        m_path = path;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::string Path() const { return m_path.string(); }
    std::string operator/(const std::string& name) const { return (m_path / name).string(); }

    /// Writes the file `name`, a path inside the directory; its directories are made.
    void Write(const std::string& name, const std::string& content) const {
        const std::filesystem::path file = m_path / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
    }

    /// What the file `name` holds; nothing when there is none.
    std::string Read(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(m_path / name, std::ios::binary).rdbuf();
        return text.str();
    }

private:
    std::filesystem::path m_path;
};

} // namespace TestSupport
