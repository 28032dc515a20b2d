// What a download leaves in the device for its application program: memory and application data.
#pragma once

#include "KnxStack/BinaryData.h"
#include "KnxStack/IApplicationProgramMemory.h"
#include "KnxStack/IDownloadService.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace KnxDevice {

/// Two unchanging blocks. A download puts others in their place; a block that was handed out is kept as long
/// as this object all the same, because a start of the program that could not be stopped, inside a plug-in,
/// may still read it. A block that nobody has asked for, and one that is replaced by an equal one, cost
/// nothing. Any thread; the lock is held for moments.
class DownloadedData final : public KnxStack::IApplicationProgramMemory, public KnxStack::IDownloadService {
public:
    DownloadedData() = default;
    DownloadedData(KnxStack::BinaryData memory, KnxStack::BinaryData applicationData);

    const KnxStack::BinaryData& GetData() const override { return m_memory.HandOut(); }
    const KnxStack::BinaryData& GetApplicationData() override { return m_applicationData.HandOut(); }

    void Replace(KnxStack::BinaryData memory, KnxStack::BinaryData applicationData);

    /// How many blocks are held, the current ones included.
    std::size_t Held() const { return m_memory.Held() + m_applicationData.Held(); }

private:
    class Block {
    public:
        const KnxStack::BinaryData& HandOut() const;
        void Replace(KnxStack::BinaryData next);
        std::size_t Held() const;

    private:
        mutable std::mutex m_mutex; // guards the rest
        mutable bool m_handedOut = false;
        std::unique_ptr<const KnxStack::BinaryData> m_current = std::make_unique<KnxStack::BinaryData>();
        std::vector<std::unique_ptr<const KnxStack::BinaryData>> m_former; // that were handed out
    };

    Block m_memory;
    Block m_applicationData;
};

} // namespace KnxDevice
