// Result of reading outside bytes or text: the value, or why there is none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <variant>

namespace KnxFrames {

/// Why input was refused. Cheap to copy and to compare: `cause` is a literal, so that its address or its text
/// can serve as the key when a host wants to report each cause once per source.
struct FrameError {
    enum class Kind : std::uint8_t {
        Malformed,   ///< the input breaks the format; the sender is at fault
        Unsupported, ///< well formed as far as looked at, but not something that is handled here
    };

    Kind kind = Kind::Malformed;
    const char* cause = ""; ///< one phrase in English without a full stop
    std::size_t offset = 0; ///< index of the octet or character where reading stopped

    static FrameError Malformed(const char* cause, std::size_t offset) {
        return {Kind::Malformed, cause, offset};
    }
    static FrameError Unsupported(const char* cause, std::size_t offset) {
        return {Kind::Unsupported, cause, offset};
    }
};

/// Either a T or a FrameError. Reading the side that is not there throws std::bad_variant_access.
template <class T>
class [[nodiscard]] Outcome {
public:
    Outcome(T value) : m_content(std::in_place_index<0>, std::move(value)) {}
    Outcome(FrameError error) : m_content(std::in_place_index<1>, error) {}

    explicit operator bool() const { return m_content.index() == 0; }
    const T& operator*() const& { return std::get<0>(m_content); }
    T& operator*() & { return std::get<0>(m_content); }
    T&& operator*() && { return std::get<0>(std::move(m_content)); }
    const T* operator->() const { return &std::get<0>(m_content); }
    T* operator->() { return &std::get<0>(m_content); }
    const FrameError& Error() const { return std::get<1>(m_content); }

private:
    std::variant<T, FrameError> m_content;
};

} // namespace KnxFrames
