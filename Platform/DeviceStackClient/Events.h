// What the I/O thread hands to the callback thread.
#pragma once

#include "DeviceStackProtocol/Messages.h"

#include <cstdint>
#include <string>
#include <variant>

namespace DeviceStackClient {

/// Causes that the client itself finds; below them all, the codes of DeviceStack::Error.
enum OwnErrorCode : int {
    kNotConnected = -1,
    kTimeout = -2,
    kClosing = -3,
    kBadArgument = -4,
    kQueueFull = -5,
};

struct ConnectionLost {};

/// The device stack asks an owner. `connection` numbers the connection on which it came: once that is gone,
/// who asked has been told so, and the request is void.
struct FieldRequest {
    std::uint64_t connection = 0;
    std::string id;
    std::variant<DeviceStack::ReadValue, DeviceStack::WriteValue> what;
};

// Answers to requests that nobody waits for; `error.code` 0 = success.

struct ValueAnswer {
    std::string request;
    std::uint32_t id = 0;
    std::string urn;
    std::string value;
    DeviceStack::Error error;
};

struct SetAnswer {
    std::string request;
    std::uint32_t id = 0;
    std::string value;
    DeviceStack::Error error;
};

struct SetConfigurationAnswer {
    std::string request;
    DeviceStack::Error error;
};

struct RegistrationAnswer {
    std::string request;
    DeviceStack::Error error;
};

using Event = std::variant<DeviceStack::ValueChanged, DeviceStack::ConfigurationChanged,
                           DeviceStack::ApplicationEvent, ConnectionLost, FieldRequest, ValueAnswer,
                           SetAnswer, SetConfigurationAnswer, RegistrationAnswer>;

} // namespace DeviceStackClient
