#include "GroupAddressTranslationHandler.h"

#include "KnxStack/GroupValue.h"
#include "KnxStack/IGroupObject.h"
#include "KnxStack/IGroupValueService.h"
#include "Vesk/IDeviceStackClient.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <utility>

namespace {

constexpr std::array<char, 3> kTypeCharacters{'!', '#', '?'}; // by event type
constexpr char kUnknownType = '.';

constexpr std::size_t kShortestMessage = 5; // type and CO
constexpr std::size_t kSizePosition = 5;
constexpr std::size_t kValuePosition = 7;

char TypeCharacter(GroupAddressTranslationHandler::EventType type) {
    const auto index = static_cast<std::size_t>(type);
    return index < kTypeCharacters.size() ? kTypeCharacters[index] : kUnknownType;
}

/// A hexadecimal field: the digits up to the first character that is none count. 0 when there is no digit, or
/// when the number is not below the limit.
std::uint32_t HexField(std::string_view field, std::uint32_t limit) {
    std::uint32_t number = 0;
    const auto result = std::from_chars(field.data(), field.data() + field.size(), number, 16);
    return result.ec == std::errc() && number < limit ? number : 0;
}

} // namespace

GroupAddressTranslationHandler::GroupAddressTranslationHandler()
    : m_logger(log4cplus::Logger::getInstance("GroupAddressTranslation")) {}

void GroupAddressTranslationHandler::Init(Vesk::IDeviceStackClient* client,
                                          KnxStack::IGroupValueService* service) {
    m_client = client;
    m_groupValueService = service;
    m_initialised = true;
}

void GroupAddressTranslationHandler::ReplaceClient(Vesk::IDeviceStackClient* client) {
    if (m_initialised)
        m_client = client;
}

void GroupAddressTranslationHandler::SetTargetName(std::string name) {
    m_targetName = std::move(name);
}

void GroupAddressTranslationHandler::SetRange(std::array<std::uint16_t, 2> range) {
    m_range = range[0] | static_cast<std::uint32_t>(range[1]) << 16;
}

bool GroupAddressTranslationHandler::IsGroupAddressTranslationCo(std::uint16_t co) const {
    const std::uint32_t range = m_range;
    const auto first = static_cast<std::uint16_t>(range);
    const auto last = static_cast<std::uint16_t>(range >> 16);
    return first != 0 && last != 0 && first <= co && co <= last;
}

bool GroupAddressTranslationHandler::IsEnabled() const {
    const std::uint32_t range = m_range;
    return (range & 0xFFFF) != 0 && range >> 16 != 0;
}

bool GroupAddressTranslationHandler::OnGroupValueWrite(std::uint16_t co, const KnxStack::GroupValue& value) {
    return SendEvent(co, EventType::Write, &value);
}

bool GroupAddressTranslationHandler::OnGroupValueResponse(std::uint16_t co,
                                                          const KnxStack::GroupValue& value) {
    return SendEvent(co, EventType::Response, &value);
}

bool GroupAddressTranslationHandler::OnGroupValueRead(std::uint16_t co) {
    return SendEvent(co, EventType::Read, nullptr);
}

bool GroupAddressTranslationHandler::SendEvent(std::uint16_t co, EventType type,
                                               const KnxStack::GroupValue* value) {
    Vesk::IDeviceStackClient* const client = m_client;
    if (m_targetName.empty() || client == nullptr) {
        LOG4CPLUS_ERROR(m_logger, "Sending event not possible, target name is empty or DSC not connected.");
        return false;
    }
    if (co == 0 || type == EventType::Error) {
        LOG4CPLUS_ERROR(m_logger, "Sending event not possible, CO is 0 or type is error.");
        return false;
    }
    if ((type == EventType::Write || type == EventType::Response) && value == nullptr) {
        LOG4CPLUS_ERROR(m_logger, "Missing value for sending write/response event.");
        return false;
    }

    const std::string message =
        type == EventType::Read
            ? fmt::format("{}{:04x}", TypeCharacter(type), co)
            : fmt::format("{}{:04x}{:02x}{:02x}", TypeCharacter(type), co, value->GetDefinedSize(),
                          fmt::join(value->GetRawData().Bytes(), ""));
    const std::string command = fmt::format(
        "{{\"command\":\"EmitEvent\",\"eventType\":\"application\",\"to\":\"{}\",\"message\":\"{}\"}}",
        m_targetName, message);
    if (client->Command(command).empty()) {
        LOG4CPLUS_ERROR(m_logger, "Failed to send event.");
        return false;
    }
    return true;
}

bool GroupAddressTranslationHandler::OnMessageReceived(std::string_view message) {
    if (message.size() < kShortestMessage) {
        LOG4CPLUS_ERROR(m_logger, "Received message is too short, minimal size is 5: " << message);
        return false;
    }
    const char type = message[0];
    if (std::find(kTypeCharacters.begin(), kTypeCharacters.end(), type) == kTypeCharacters.end()) {
        LOG4CPLUS_ERROR(m_logger, "Received message has invalid type '" << type << "'.");
        return false;
    }
    const auto co = static_cast<std::uint16_t>(HexField(message.substr(1, 4), 0x10000));
    if (co == 0) {
        LOG4CPLUS_ERROR(m_logger, "Received message has invalid CO: " << message);
        return false;
    }
    if (type != TypeCharacter(EventType::Read))
        return SendReceivedValue(co, type == TypeCharacter(EventType::Response), message);
    KnxStack::IGroupValueService* const service = Service();
    return service != nullptr && service->SendReadRequest(co);
}

KnxStack::IGroupValueService* GroupAddressTranslationHandler::Service() const {
    KnxStack::IGroupValueService* const service = m_groupValueService;
    if (service == nullptr)
        LOG4CPLUS_ERROR(m_logger, "Received message can't be sent, there is no group value service.");
    return service;
}

bool GroupAddressTranslationHandler::SendReceivedValue(std::uint16_t co, bool response,
                                                       std::string_view message) {
    if (message.size() <= kSizePosition + 1) {
        LOG4CPLUS_ERROR(m_logger, "Received message is missing size and value: " << message);
        return false;
    }
    const std::uint32_t size = HexField(message.substr(kSizePosition, 2), 0x10000);
    if (size == 0) {
        LOG4CPLUS_ERROR(m_logger, "Received message has invalid size: " << message);
        return false;
    }
    const std::size_t bytes = ((size + 7) >> 3) & 0xFF;
    if (message.size() != kValuePosition + 2 * bytes) {
        LOG4CPLUS_ERROR(m_logger, "Received message has mismatching size: " << message);
        return false;
    }
    KnxStack::IGroupValueService* const service = Service();
    if (service == nullptr)
        return false;
    const KnxStack::IGroupObject& object = service->GetGroupObject(co);
    const auto coSize = static_cast<std::uint16_t>(object.GetElementWidth() * object.GetElementCount());
    if (coSize != size) {
        LOG4CPLUS_ERROR(m_logger, "Received message for CO " << co << " has size of " << size
                                                             << " bit but CO has size of " << coSize
                                                             << " bit.");
        return false;
    }

    KnxStack::BinaryData data;
    for (std::size_t i = 0; i < bytes; ++i)
        data.Append(static_cast<std::uint8_t>(HexField(message.substr(kValuePosition + 2 * i, 2), 0x100)));
    return service->SendGroupValue(co, KnxStack::GroupValue(data, size),
                                   response ? KnxStack::IGroupValueService::kResponse
                                            : KnxStack::IGroupValueService::kWrite);
}
