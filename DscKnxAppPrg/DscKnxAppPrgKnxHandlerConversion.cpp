// Values of group objects and data points.
#include "DscKnxAppPrg.h"

#include "KnxStack/GroupValue.h"
#include "KnxStack/IGroupObject.h"
#include "KnxStack/IGroupValueService.h"

#include <log4cplus/loggingmacros.h>

#include <array>
#include <charconv>

namespace {

constexpr int kApplicationProgram = 1;
constexpr std::uint8_t kWholeBytes = 8; // size code

/// The shortest text that reads back as the same double.
std::string ShortestText(double value) {
    std::array<char, 32> text;
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    return {text.data(), end};
}

} // namespace

bool DscKnxAppPrg::KnxHandler::GetGroupValueFromValue(const std::string& text, std::uint16_t co, KNXDPT& dpt,
                                                      KnxStack::GroupValue& groupValue) const {
    if (dpt.main != 0) {
        if (!m_valueConverter.ToKnxValue(dpt, text, groupValue))
            return false;
        LOG4CPLUS_DEBUG(m_logger, "GetGroupValueFromValue("
                                      << text << ", " << co << ", " << groupValue.GetRawData().ToString()
                                      << ") - ToKnxValue(" << unsigned{dpt.sizeInBits} << ":" << dpt.main
                                      << "." << dpt.sub << ", " << text << ", "
                                      << groupValue.GetRawData().ToString() << ") succeeded (2).");
        return true;
    }
    const std::uint8_t size = dpt.sizeInBits != 0 ? dpt.sizeInBits : GetValueSizeFromCO(co);
    if (!m_valueConverter.ToKnxValue(text, size, groupValue))
        return false;
    // The message shows the size that was asked for, 0 where the object's own size was used.
    LOG4CPLUS_DEBUG(m_logger, "GetGroupValueFromValue("
                                  << text << ", " << co << ", " << groupValue.GetRawData().ToString()
                                  << ") - ToKnxValue(" << text << ", " << unsigned{dpt.sizeInBits} << ", "
                                  << groupValue.GetRawData().ToString() << ") succeeded (3).");
    return true;
}

bool DscKnxAppPrg::KnxHandler::GetGroupValueFromValue(const std::string& text, std::uint16_t co,
                                                      KnxStack::GroupValue& groupValue) const {
    KNXDPT dpt = SizedDpt(GetValueSizeFromCO(co));
    return GetGroupValueFromValue(text, co, dpt, groupValue);
}

std::string DscKnxAppPrg::KnxHandler::GetValueFromGroupValue(KNXDPT& dpt,
                                                             const KnxStack::GroupValue& groupValue) const {
    TAVVALUE value;
    if (m_valueConverter.FromKnxValue(dpt, groupValue, value)) {
        std::string text;
        value.Serialize(text, true);
        LOG4CPLUS_DEBUG(m_logger, "GetValueFromGroupValue("
                                      << groupValue.GetRawData().ToString() << ") - FromKnxValue("
                                      << groupValue.GetRawData().ToString() << ", " << text
                                      << ", true) succeeded.");
        return text;
    }
    switch (groupValue.GetDefinedSize()) {
    case 1: return groupValue.GetAsBoolean() ? "1" : "0";
    case 8: return ShortestText(groupValue.GetAsUnsigned8() / 255.0); // a fraction of 1, not a percentage
    case 16: return ShortestText(groupValue.GetAsFloat16());
    default: return {};
    }
}

std::uint8_t DscKnxAppPrg::KnxHandler::GetValueSizeFromCO(std::uint16_t co) const {
    KnxStack::IGroupValueService* const service = m_groupValueService;
    if (service == nullptr)
        return 0;
    const KnxStack::IGroupObject& object = service->GetGroupObject(co);
    if (!object.Exists(kApplicationProgram))
        return 0;
    const std::uint8_t code = object.GetSizeCode();
    // Sizes are 8-bit quantities: an object of 32 bytes has size 0.
    return code == kWholeBytes ? static_cast<std::uint8_t>(object.GetLengthInBytes() * 8) : code;
}

Vesk::KnxAppPrg::CoDescriptorData DscKnxAppPrg::KnxHandler::GetCoDescriptorData(std::uint16_t co) const {
    KnxStack::IGroupValueService* const service = m_groupValueService;
    if (service == nullptr)
        return {};
    const KnxStack::IGroupObject& object = service->GetGroupObject(co);
    if (!object.Exists(kApplicationProgram))
        return {};
    return {co, static_cast<std::uint8_t>(object.IsCommunicationEnabled() ? 1 : 0)};
}
