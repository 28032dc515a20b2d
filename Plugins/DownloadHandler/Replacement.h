// Puts a new file in the place of another one, in one step.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace Download {

/// Why a download is refused: one sentence.
class Refusal : public std::runtime_error {
    using runtime_error::runtime_error;
};

/// The content that is to become `file`. It stands in "<file>.new" beside it until Commit() renames that: a
/// reader, a power failure and the end of the process at any moment find the old file or the whole new one.
/// What is not committed is removed; what a power failure leaves behind is overwritten by the next one. Where
/// `file` is a symbolic link the file behind it is replaced.
///
/// Every operation throws Refusal and has then changed nothing but the temporary file. One at a time for a
/// file, also between processes: a second one is refused. For one thread.
class Replacement {
public:
    explicit Replacement(const std::string& file);
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    /// Writes the whole content and brings it to the disk.
    void Write(std::string_view content);

    const std::string& TemporaryPath() const { return m_temporary; }

    /// Renames. "" or why a power failure may still bring back the old file; the new one is in place in any
    /// case.
    std::string Commit();

private:
    struct Closed {};
    Replacement(std::string file, Closed);

    void Open();
    void TakeOverAccess();

    const std::string m_file; // behind links
    const std::string m_temporary;
    int m_fd = -1;
    bool m_owned = false; // the temporary file is ours to remove
};

} // namespace Download
