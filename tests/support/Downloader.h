// A tool that loads a System B device over the bus, as ETS does it.
#pragma once

#include "KnxFrames/Tpdu.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TestSupport {

/// The way to the device: telegrams point to point.
class ManagementChannel {
public:
    virtual ~ManagementChannel() = default;

    virtual void Send(const KnxFrames::Tpdu& tpdu) = 0;
    /// The device's next telegram; nothing when it says nothing any more.
    virtual std::optional<KnxFrames::Tpdu> Receive() = 0;
};

/// One line of a description file, see LoadDescription().
struct DownloadStep {
    enum class Kind { Load, Property } kind = Kind::Load;
    std::uint8_t object = 0;   ///< index
    std::uint8_t property = 0; ///< of Property
    std::vector<std::uint8_t> octets;
};

/// Reads a description: lines "load OBJECT OCTETS" (unload, start loading, allocate, write, complete) and
/// "property OBJECT PID OCTETS", octets as hexadecimal digits, "#" begins a comment. Fails the test when
/// there is no such file, or a line is something else.
std::vector<DownloadStep> LoadDescription(const std::string& path);

/// Plays a download: connect, device descriptor, authorize, unload everything that is to be loaded, load it,
/// check what was written, restart. Each telegram that the tool sends counts, acknowledgements too.
class Downloader {
public:
    explicit Downloader(ManagementChannel& channel) : m_channel(channel) {}

    /// Breaks off without a word before telegram number `most` + 1.
    void BreakOffAfter(std::size_t most) { m_most = most; }

    /// True when the device did everything that it was told. What went wrong is in Fault().
    bool Run(const std::vector<DownloadStep>& steps);

    const std::string& Fault() const { return m_fault; }
    std::size_t TelegramsSent() const { return m_sent; }

private:
    using Bytes = std::vector<std::uint8_t>;
    struct BrokenOff {};
    struct Failed {};

    void Play(const std::vector<DownloadStep>& steps);
    void Load(const DownloadStep& step);
    void WriteMemory(std::uint32_t address, const Bytes& octets);
    void Control(std::uint8_t object, const Bytes& event, std::uint8_t expectedState);
    Bytes ReadProperty(std::uint8_t object, std::uint8_t property);
    void WriteProperty(std::uint8_t object, std::uint8_t property, const Bytes& octets);
    /// The answer's octets behind the control information.
    Bytes Ask(std::uint16_t apci, const Bytes& data, std::uint16_t answer);
    void SendNumbered(std::uint16_t apci, const Bytes& data);
    void Send(const KnxFrames::Tpdu& tpdu);
    [[noreturn]] void Fail(const std::string& fault);

    ManagementChannel& m_channel;
    std::optional<std::size_t> m_most;
    std::size_t m_sent = 0;
    std::uint8_t m_sendSequence = 0;
    std::uint8_t m_receiveSequence = 0;
    std::string m_fault;
};

} // namespace TestSupport
