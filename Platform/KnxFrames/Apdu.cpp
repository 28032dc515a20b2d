#include "KnxFrames/Apdu.h"

#include <algorithm>
#include <iterator>

namespace KnxFrames {
namespace {

constexpr std::uint16_t kNumberMask = 0x3F;

struct Entry {
    Service service;
    const char* name;
    bool carriesNumber = false;
};

constexpr bool kWithNumber = true;

// In ascending order.
constexpr Entry kServices[] = {
    {Service::IndividualAddressWrite, "A_IndividualAddress_Write"},
    {Service::IndividualAddressRead, "A_IndividualAddress_Read"},
    {Service::IndividualAddressResponse, "A_IndividualAddress_Response"},
    {Service::AdcRead, "A_ADC_Read", kWithNumber},
    {Service::AdcResponse, "A_ADC_Response", kWithNumber},
    {Service::SystemNetworkParameterRead, "A_SystemNetworkParameter_Read"},
    {Service::SystemNetworkParameterResponse, "A_SystemNetworkParameter_Response"},
    {Service::SystemNetworkParameterWrite, "A_SystemNetworkParameter_Write"},
    {Service::PropertyExtValueRead, "A_PropertyExtValue_Read"},
    {Service::PropertyExtValueResponse, "A_PropertyExtValue_Response"},
    {Service::PropertyExtValueWriteCon, "A_PropertyExtValue_WriteCon"},
    {Service::PropertyExtValueWriteConRes, "A_PropertyExtValue_WriteConRes"},
    {Service::PropertyExtValueWriteUnCon, "A_PropertyExtValue_WriteUnCon"},
    {Service::PropertyExtDescriptionRead, "A_PropertyExtDescription_Read"},
    {Service::PropertyExtDescriptionResponse, "A_PropertyExtDescription_Response"},
    {Service::FunctionPropertyExtCommand, "A_FunctionPropertyExtCommand"},
    {Service::FunctionPropertyExtStateRead, "A_FunctionPropertyExtState_Read"},
    {Service::FunctionPropertyExtStateResponse, "A_FunctionPropertyExtState_Response"},
    {Service::MemoryExtendedWrite, "A_MemoryExtended_Write"},
    {Service::MemoryExtendedWriteResponse, "A_MemoryExtended_WriteResponse"},
    {Service::MemoryExtendedRead, "A_MemoryExtended_Read"},
    {Service::MemoryExtendedReadResponse, "A_MemoryExtended_ReadResponse"},
    {Service::MemoryRead, "A_Memory_Read", kWithNumber},
    {Service::MemoryResponse, "A_Memory_Response", kWithNumber},
    {Service::MemoryWrite, "A_Memory_Write", kWithNumber},
    {Service::UserMemoryRead, "A_UserMemory_Read"},
    {Service::UserMemoryResponse, "A_UserMemory_Response"},
    {Service::UserMemoryWrite, "A_UserMemory_Write"},
    {Service::UserManufacturerInfoRead, "A_UserManufacturerInfo_Read"},
    {Service::UserManufacturerInfoResponse, "A_UserManufacturerInfo_Response"},
    {Service::FunctionPropertyCommand, "A_FunctionPropertyCommand"},
    {Service::FunctionPropertyStateRead, "A_FunctionPropertyState_Read"},
    {Service::FunctionPropertyStateResponse, "A_FunctionPropertyState_Response"},
    {Service::DeviceDescriptorRead, "A_DeviceDescriptor_Read", kWithNumber},
    {Service::DeviceDescriptorResponse, "A_DeviceDescriptor_Response", kWithNumber},
    {Service::Restart, "A_Restart"},
    {Service::MasterReset, "A_Restart (master reset)"},
    {Service::MasterResetResponse, "A_Restart_Response"},
    {Service::AuthorizeRequest, "A_Authorize_Request"},
    {Service::AuthorizeResponse, "A_Authorize_Response"},
    {Service::KeyWrite, "A_Key_Write"},
    {Service::KeyResponse, "A_Key_Response"},
    {Service::PropertyValueRead, "A_PropertyValue_Read"},
    {Service::PropertyValueResponse, "A_PropertyValue_Response"},
    {Service::PropertyValueWrite, "A_PropertyValue_Write"},
    {Service::PropertyDescriptionRead, "A_PropertyDescription_Read"},
    {Service::PropertyDescriptionResponse, "A_PropertyDescription_Response"},
    {Service::NetworkParameterRead, "A_NetworkParameter_Read"},
    {Service::NetworkParameterResponse, "A_NetworkParameter_Response"},
    {Service::IndividualAddressSerialNumberRead, "A_IndividualAddressSerialNumber_Read"},
    {Service::IndividualAddressSerialNumberResponse, "A_IndividualAddressSerialNumber_Response"},
    {Service::IndividualAddressSerialNumberWrite, "A_IndividualAddressSerialNumber_Write"},
    {Service::NetworkParameterWrite, "A_NetworkParameter_Write"},
};

const Entry* Find(std::uint16_t apci) {
    const auto* const found =
        std::lower_bound(std::begin(kServices), std::end(kServices), apci,
                         [](const Entry& each, unsigned number) { return unsigned(each.service) < number; });
    return found != std::end(kServices) && unsigned(found->service) == apci ? found : nullptr;
}

} // namespace

const char* ToString(Service service) {
    const Entry* const found = Find(static_cast<std::uint16_t>(service));
    return found == nullptr ? "unknown service" : found->name;
}

Outcome<Apdu> ReadApdu(const Tpdu& tpdu) {
    if (tpdu.Size() < 2)
        return FrameError::Malformed("an application service has fewer than two octets", tpdu.Size());
    const std::uint16_t apci = Apci(tpdu);
    if (apci == 0xFFFF)
        return FrameError::Unsupported("not data of the transport layer", 0);
    const Octets data = tpdu.View().subspan(2);
    // Whole numbers first: they lie between those that share their upper bits with a small number.
    if (const Entry* const exact = Find(apci))
        return Apdu{exact->service, 0, data};
    const Entry* const found = Find(static_cast<std::uint16_t>(apci & ~kNumberMask));
    if (found == nullptr || !found->carriesNumber)
        return FrameError::Unsupported("an application service that is not known", 1);
    return Apdu{found->service, static_cast<std::uint8_t>(apci & kNumberMask), data};
}

Tpdu MakeApdu(Service service, std::uint8_t number) {
    const auto apci = static_cast<std::uint16_t>(service);
    return {static_cast<std::uint8_t>(apci >> 8),
            static_cast<std::uint8_t>((apci & 0xFF) | (number & kNumberMask))};
}

Tpdu MakeApdu(Service service, std::uint8_t number, Octets data) {
    Tpdu tpdu = MakeApdu(service, number);
    tpdu.Append(data);
    return tpdu;
}

} // namespace KnxFrames
