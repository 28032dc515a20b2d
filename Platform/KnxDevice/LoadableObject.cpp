#include "KnxDevice/LoadableObject.h"

#include <algorithm>
#include <utility>

namespace KnxDevice {

namespace {

// Additional load control "data relative allocation": opcode, size in four octets, mode, fill octet.
constexpr std::uint8_t kRelativeAllocation = 0x0B;
constexpr std::size_t kRelativeAllocationSize = 7;
constexpr std::uint8_t kFill = 0x01; // in mode

std::uint8_t At(Octets octets, std::size_t index) {
    return index < octets.size() ? octets[index] : std::uint8_t{0};
}

std::uint32_t Number32(Octets octets) {
    std::uint32_t number = 0;
    for (std::size_t index = 0; index < 4; ++index)
        number = number << 8 | At(octets, index);
    return number;
}

} // namespace

const char* ToString(LoadState state) {
    switch (state) {
    case LoadState::Unloaded: return "unloaded";
    case LoadState::Loaded: return "loaded";
    case LoadState::Loading: return "loading";
    case LoadState::Error: break;
    }
    return "error";
}

const char* ToString(LoadFault fault) {
    switch (fault) {
    case LoadFault::None: return "no fault";
    case LoadFault::NoMemory: return "there is no room for the memory asked for";
    case LoadFault::ZeroAllocation: return "memory without octets was asked for";
    case LoadFault::InvalidOpcode: return "a load event or load control that cannot be used here";
    case LoadFault::TableTooLong: return "the table says that it is longer than its memory";
    case LoadFault::AddressesUnsorted: return "the group addresses do not ascend";
    case LoadFault::InvalidConnection: return "an association has no group address";
    case LoadFault::InvalidObject: return "an association or a table entry has an impossible group object";
    case LoadFault::ObjectTooBig: break;
    }
    return "a group object has an impossible size";
}

WriteResult LoadableObject::Control(Octets octets) {
    const auto event = static_cast<LoadEvent>(At(octets, 0));
    if (event == LoadEvent::NoOperation)
        return WriteResult::Done;
    if (event == LoadEvent::Unload) {
        Unload();
        return WriteResult::Done;
    }
    if (m_state == LoadState::Error)
        return WriteResult::WrongState; // only unloading leads out of it
    switch (event) {
    case LoadEvent::StartLoading: m_state = LoadState::Loading; return WriteResult::Done;
    case LoadEvent::LoadCompleted: return CompleteLoading();
    case LoadEvent::AdditionalLoadControl: return AllocateRelative(octets.subspan(1));
    default: return Fail(LoadFault::InvalidOpcode, WriteResult::UnknownEvent);
    }
}

WriteResult LoadableObject::CompleteLoading() {
    if (m_state == LoadState::Loaded)
        return WriteResult::Done;
    if (m_state != LoadState::Loading)
        return Fail(LoadFault::InvalidOpcode, WriteResult::WrongState);
    const auto fault = m_check(m_segment.octets);
    if (fault != LoadFault::None)
        return Fail(fault, WriteResult::InvalidLoad);
    m_state = LoadState::Loaded;
    return WriteResult::Done;
}

WriteResult LoadableObject::AllocateRelative(Octets control) {
    if (At(control, 0) != kRelativeAllocation)
        return Fail(LoadFault::InvalidOpcode, WriteResult::UnknownEvent);
    if (m_state != LoadState::Loading)
        return Fail(LoadFault::InvalidOpcode, WriteResult::WrongState);
    if (control.size() < kRelativeAllocationSize)
        return Fail(LoadFault::InvalidOpcode, WriteResult::InvalidLoad);
    const std::size_t size = Number32(control.subspan(1));
    if (size == 0)
        return Fail(LoadFault::ZeroAllocation, WriteResult::InvalidLoad);
    const bool fill = (control[5] & kFill) != 0;
    Segment former = std::exchange(m_segment, {});
    const auto address = m_allocate(size);
    if (address == 0)
        return Fail(LoadFault::NoMemory, WriteResult::NoRoom);
    m_segment.address = address;
    if (fill)
        m_segment.octets.assign(size, control[6]);
    else {
        m_segment.octets = std::move(former.octets); // what was there stays as far as it fits
        m_segment.octets.resize(size);
    }
    return WriteResult::Done;
}

bool LoadableObject::Write(std::uint32_t address, Octets octets) {
    if (m_state != LoadState::Loading || address < m_segment.address)
        return false;
    const std::size_t offset = address - m_segment.address;
    if (offset > m_segment.octets.size() || octets.size() > m_segment.octets.size() - offset)
        return false;
    std::copy(octets.begin(), octets.end(), m_segment.octets.begin() + static_cast<std::ptrdiff_t>(offset));
    return true;
}

void LoadableObject::Restore(LoadState state, LoadFault fault, Segment segment) {
    m_state = state;
    m_fault = fault;
    m_segment = std::move(segment);
}

bool LoadableObject::LoadWith(Octets octets) {
    Unload();
    if (m_check(octets) != LoadFault::None)
        return false;
    if (!octets.empty()) {
        const auto address = m_allocate(octets.size());
        if (address == 0)
            return false;
        m_segment = {address, {octets.begin(), octets.end()}};
    }
    m_state = LoadState::Loaded;
    return true;
}

WriteResult LoadableObject::Fail(LoadFault fault, WriteResult result) {
    m_state = LoadState::Error;
    m_fault = fault;
    return result;
}

void LoadableObject::Unload() {
    Restore(LoadState::Unloaded, LoadFault::None, {});
}

std::array<std::uint8_t, 8> LoadableObject::MemoryControlBlock() const {
    const auto size = static_cast<std::uint32_t>(m_segment.octets.size());
    const auto crc = Crc16(m_segment.octets);
    const auto octet = [](std::uint32_t number, unsigned shift) {
        return static_cast<std::uint8_t>(number >> shift);
    };
    return {octet(size, 24), octet(size, 16), octet(size, 8), octet(size, 0), 0x00, 0xFF,
            octet(crc, 8),   octet(crc, 0)};
}

std::uint16_t Crc16(Octets octets) {
    std::uint16_t crc = 0xFFFF;
    for (const auto octet : octets) {
        crc = static_cast<std::uint16_t>(crc ^ octet << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<std::uint16_t>((crc & 0x8000) != 0 ? crc << 1 ^ 0x1021 : crc << 1);
    }
    return crc;
}

} // namespace KnxDevice
