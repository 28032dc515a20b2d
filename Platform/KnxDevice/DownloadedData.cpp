#include "KnxDevice/DownloadedData.h"

#include <utility>

namespace KnxDevice {

DownloadedData::DownloadedData(KnxStack::BinaryData memory, KnxStack::BinaryData applicationData) {
    Replace(std::move(memory), std::move(applicationData));
}

void DownloadedData::Replace(KnxStack::BinaryData memory, KnxStack::BinaryData applicationData) {
    m_memory.Replace(std::move(memory));
    m_applicationData.Replace(std::move(applicationData));
}

const KnxStack::BinaryData& DownloadedData::Block::HandOut() const {
    const std::lock_guard lock(m_mutex);
    m_handedOut = true;
    return *m_current;
}

void DownloadedData::Block::Replace(KnxStack::BinaryData next) {
    auto made = std::make_unique<const KnxStack::BinaryData>(std::move(next));
    const std::lock_guard lock(m_mutex);
    if (*m_current == *made)
        return;
    if (std::exchange(m_handedOut, false))
        m_former.push_back(std::move(m_current));
    m_current = std::move(made);
}

std::size_t DownloadedData::Block::Held() const {
    const std::lock_guard lock(m_mutex);
    return m_former.size() + 1;
}

} // namespace KnxDevice
