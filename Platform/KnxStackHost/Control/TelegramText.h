// What a telegram says, for people: the lines of the group monitor.
#pragma once

#include "KnxFrames/Cemi.h"
#include "KnxStackHost/Configuration/Configuration.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace KnxStackHost {

/// What people call group addresses, and how values there are read. Constant, so any thread.
class AddressBook {
public:
    struct Entry {
        KnxFrames::GroupAddress address;
        std::string name;                     ///< of the first object with one; one line
        std::optional<Datapoint::Number> dpt; ///< likewise
    };

    AddressBook() = default;
    explicit AddressBook(std::span<const ConfiguredObject> objects);

    /// Null when no object has the address.
    const Entry* Find(KnxFrames::GroupAddress address) const;

private:
    std::vector<Entry> m_entries; // by address
};

/// A telegram in words. All texts are UTF-8 in one line; "" for what there is not.
struct TelegramWords {
    std::string source;
    std::string destination; ///< "1/2/3", "1.1.250", "broadcast"
    std::string name;        ///< of the group address
    std::string service;     ///< "GroupValue_Write", "T_Connect", "A_Memory_Read", ...
    std::string dpt;         ///< of the group address
    std::string value;       ///< as data points show it; with `dpt` alone
    std::string valueName;   ///< what the datapoint type calls the value: "On"
    std::string unit;
    std::string fault; ///< why there is no value although there is a datapoint type
    std::string raw; ///< octets of the value, of the whole TPDU when it is no group service; two hexadecimal
                     ///< digits each
};

TelegramWords Describe(const KnxFrames::LData& telegram, const AddressBook& book);

/// `1.1.251 -> 1/2/4 "temperature"  GroupValue_Write  9.001  21 °C  [0c1a]`
std::string MonitorLine(const TelegramWords& words);

/// The octets of a value that is to be sent, or why there are none.
struct EncodedValue {
    KnxFrames::Tpdu tpdu; ///< a GroupValue_Write; empty after a refusal
    std::string refusal;
};

/// `dpt` in every spelling, `value` as data points take it.
EncodedValue EncodeWrite(const std::string& dpt, const std::string& value);

/// Octets as people type them: hexadecimal digits, two each, also with blanks or colons between octets.
std::optional<std::vector<std::uint8_t>> OctetsOf(std::string_view digits);

} // namespace KnxStackHost
