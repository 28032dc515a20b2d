#include "DeviceStackProtocol/LineBuffer.h"

namespace DeviceStack {

void LineBuffer::Append(std::string_view bytes) {
    if (m_tooLong)
        return;
    if (m_begin > 0) {
        m_bytes.erase(0, m_begin);
        m_searched -= m_begin;
        m_begin = 0;
    }
    // A burst of memory for one long line is given back.
    if (m_bytes.empty() && m_bytes.capacity() > kMaxRequestLine)
        std::string().swap(m_bytes);
    m_bytes.append(bytes);
}

std::optional<std::string_view> LineBuffer::Next() {
    if (m_tooLong)
        return std::nullopt;
    const auto end = m_bytes.find('\n', m_searched);
    if (end == std::string::npos) {
        m_searched = m_bytes.size();
        m_tooLong = Pending() > m_maxLine;
        return std::nullopt;
    }
    if (end - m_begin > m_maxLine) {
        m_tooLong = true;
        return std::nullopt;
    }
    const std::string_view line(m_bytes.data() + m_begin, end - m_begin);
    m_begin = m_searched = end + 1;
    return line;
}

} // namespace DeviceStack
