// knxappdata: makes the application data of a download from a project file, and shows what is in them.
#include "ProjectFile/ApplicationData.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

namespace {

constexpr const char* kFooter = R"(Examples:
  knxappdata encode project.json data.bin    for the download
  knxappdata decode data.bin                 print the project file that data.bin stands for

Exit status:
  0  done
  2  the command line is wrong, a file is refused or cannot be read or written; the cause is one line on standard
     error)";

/// What is wrong, for people.
class Refused : public std::runtime_error {
    using runtime_error::runtime_error;
};

[[noreturn]] void Refuse(const std::string& file, const char* what) {
    throw Refused(fmt::format("{}: {}: {}", file, what, std::generic_category().message(errno)));
}

std::vector<std::uint8_t> Read(const std::string& path) {
    std::vector<std::uint8_t> content;
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    if (file == nullptr)
        Refuse(path, "cannot be read");
    std::uint8_t block[16384];
    while (const std::size_t count = std::fread(block, 1, sizeof block, file))
        content.insert(content.end(), block, block + count);
    const bool failed = std::ferror(file) != 0;
    const int cause = errno;
    std::fclose(file);
    if (failed) {
        errno = cause;
        Refuse(path, "cannot be read");
    }
    return content;
}

void Write(const std::string& path, const std::vector<std::uint8_t>& content) {
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        Refuse(path, "cannot be written");
    const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    const int cause = errno;
    if (std::fclose(file) != 0 || !written) {
        errno = written ? errno : cause;
        Refuse(path, "cannot be written");
    }
}

void Encode(const std::string& projectFile, const std::string& dataFile) {
    const auto project = ProjectFile::LoadProject(projectFile);
    if (!project)
        throw Refused(project.Error());
    const auto encoded = ProjectFile::EncodeApplicationData(*project.project);
    if (!encoded.error.empty())
        throw Refused(fmt::format("{}: {}", projectFile, encoded.error));
    Write(dataFile, encoded.data);
}

void Decode(const std::string& dataFile) {
    const auto decoded = ProjectFile::DecodeApplicationData(Read(dataFile), dataFile);
    if (!decoded)
        throw Refused(decoded.Error());
    const std::string text = ProjectFile::WriteProject(*decoded.project);
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
        Refuse("standard output", "cannot be written");
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Makes the application data of a download, and shows what is in them.", "knxappdata");
    app.footer(kFooter);
    app.set_version_flag("--version", "knxappdata " KNXAPPDATA_VERSION);
    app.require_subcommand(1);

    std::string projectFile;
    std::string dataFile;
    auto* encode = app.add_subcommand("encode", "Make application data of a project file");
    encode->add_option("PROJECT", projectFile, "Project file")->required()->option_text(" ");
    encode->add_option("DATA", dataFile, "File to write")->required()->option_text(" ");
    auto* decode = app.add_subcommand("decode", "Print the project file that application data stand for");
    decode->add_option("DATA", dataFile, "Application data")->required()->option_text(" ");

    try {
        app.parse(argc, argv);
        if (encode->parsed())
            Encode(projectFile, dataFile);
        else
            Decode(dataFile);
        return 0;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception& error) {
        fmt::print(stderr, "knxappdata: {}\n", error.what());
        return 2;
    }
}
