// Plug-in that describes the device's application program.
#pragma once

#include "Vesk/KNXDPT.h"
#include "Vesk/KnxAppPrg.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Vesk {

/// Knows which data point belongs to which communication object (CO), and what else is special about the
/// device. Implemented by a shared library that exports
///
///     extern "C" Vesk::IKnxAppPrgHandler* CreateHandler(std::string& configFile);  // null declines
///     extern "C" bool DeleteHandler(Vesk::IKnxAppPrgHandler*& handler);
///
/// and is listed in "knxappprghandlers.xml". Several plug-ins may be loaded: they are asked in the order of
/// the registry, and the first answer that is not the operation's no-answer value counts.
///
/// A `KNXDPT&` is filled by the plug-in that answers; without an answer it is left alone. It comes in with a
/// size that the caller knows (sizeInBits, main 0), or zeroed, or with a type: what an earlier plug-in
/// without an answer left in it, or what was remembered of another question for the same data point. So
/// whoever answers sets `main` and `sub` and does not rely on what they were.
///
/// Life: CreateHandler and Initialize come on the host's thread, before anything else. `configFile` is the
/// registry's text; the reference is valid until DeleteHandler has returned, and a change of the text is kept
/// but not looked at. DeleteHandler comes once for each library that was loaded and whose CreateHandler did
/// not decline, then the library is unloaded; after a CreateHandler that threw, its argument is null. It
/// comes on the host's thread while nobody asks; else on the thread of the last question that was still
/// running (the bus's, the device stack client's, the program's start-up thread), which may hold locks of the
/// program: it must not wait for another thread that asks the program or a plug-in.
///
/// Threads: every other operation may be called from several threads at the same time, also Reload beside
/// queries. An operation must not call back into the application program, and should answer at once: a
/// telegram waits for it.
///
/// Exceptions: to be avoided. Out of CreateHandler or Initialize one makes the loading of all plug-ins fail;
/// out of an operation it drops the telegram or the callback that asked; out of DeleteHandler it is
/// swallowed.
class IKnxAppPrgHandler {
public:
    static constexpr std::uint16_t kNoCo = 0xFFFF;

    virtual ~IKnxAppPrgHandler() = default;

    /// Start-up check, called once after CreateHandler. False makes the loading of all plug-ins fail.
    virtual bool Initialize() = 0;

    /// The data point of a CO. No answer: 0.
    virtual std::uint32_t GetIDFromCO(std::uint16_t co, KNXDPT& dpt) = 0;

    /// The data point of a CO as a URN without the device's prefix. No answer: "".
    virtual std::string GetUrnFromCO(std::uint16_t co, KNXDPT& dpt) = 0;

    /// The CO of a data point, `reading` true for the CO that the data point is read through. No answer:
    /// kNoCo.
    virtual std::uint16_t GetCOFromID(std::uint32_t id, bool reading, KNXDPT& dpt) = 0;
    virtual std::uint16_t GetCOFromUrn(const std::string& urn, bool reading, KNXDPT& dpt) = 0;

    /// True when a change of the data point is to be sent on the bus. No answer: false.
    virtual bool IsKnxEventDataPoint(std::uint32_t id) = 0;
    virtual bool IsKnxEventDataPoint(const std::string& urn) = 0;

    /// True when the device stack itself holds the value: bus writes and reads go to its store. No answer:
    /// false.
    virtual bool IsOxnReadInternalDataPoint(std::uint32_t id) = 0;
    virtual bool IsOxnReadInternalDataPoint(const std::string& urn) = 0;

    /// The COs that carry date or time, `index` from 1. `writing` true: those that the device sends to. No
    /// answer: kNoCo.
    virtual std::uint16_t GetTimeCoByIndex(std::uint32_t index, bool writing, KNXDPT& dpt) = 0;

    /// Id of the program's own interface object. No answer: 0.
    virtual std::uint32_t GetInterfaceObjectId() = 0;

    /// The properties of the program's own interface object, `index` from 1; the result is the PID. No
    /// answer: 0.
    virtual std::uint32_t GetPropertyByIndex(std::uint32_t index, std::uint8_t& dataType, std::string& name,
                                             std::uint16_t& elementCount) = 0;

    /// Interface object type of the extended properties. No answer: 0.
    virtual std::uint32_t GetExtendedInterfaceObjectType() = 0;

    /// Properties on further interface objects. No answer: an empty vector.
    virtual std::vector<KnxAppPrg::ExtendedProperty> GetExtendedProperties() = 0;

    /// First and last CO whose telegrams are forwarded to another application. A pair with a zero is none.
    virtual std::pair<std::uint16_t, std::uint16_t> GetGroupAddressTranslationRange() = 0;

    /// True when data points are known by URN instead of by ID. No answer: false.
    virtual bool GetUseUrns() = 0;

    /// Reads the plug-in's own configuration again. False when that failed; the former one then stays.
    virtual bool Reload() = 0;
};

} // namespace Vesk
