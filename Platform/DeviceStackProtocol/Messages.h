// The messages between the device stack and its clients, as structs.
//
// docs/formats/device-stack-protocol.md describes the wire. All texts are UTF-8. A request id is kept as its
// JSON text (`7`, `"abc"`, `null`); "" stands for a notification, which is never answered. Plain values; all
// functions may be called from any thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace DeviceStack {

/// Codes of Error.
enum ErrorCode : int {
    kParseError = -32700,     ///< not JSON, or the line is too long
    kInvalidRequest = -32600, ///< JSON, but not a message
    kMethodNotFound = -32601,
    kInvalidParams = -32602,
    kNoSuchDataPoint = 1,
    kIdentityInUse = 2,
    kNoValue = 3,
    kValueDoesNotFit = 4,
    kAccessDenied = 5,
    kNotReady = 6,
    kNoAnswer = 7,
    kNoSuchApplication = 8,
    kCommandFailed = 9,
};

/// Why a request failed; the message is one sentence for people.
struct Error {
    int code = 0;
    std::string message;

    bool operator==(const Error&) const = default;
};

/// Names one data point, in one of three ways.
struct DataPointName {
    enum class By { Id, Urn, Name };

    By by = By::Id;
    std::uint32_t id = 0; ///< with By::Id
    std::string text;     ///< the full URN, or the part behind the device

    static DataPointName OfId(std::uint32_t id) { return {By::Id, id, {}}; }
    static DataPointName OfUrn(std::string urn) { return {By::Urn, 0, std::move(urn)}; }
    static DataPointName OfName(std::string name) { return {By::Name, 0, std::move(name)}; }

    bool operator==(const DataPointName&) const = default;
};

// Requests of a client.

struct Register {
    std::string name;
    std::string type;
    std::string instance;
    bool events = false;                     ///< wants value and configuration changes and application events
    bool field = false;                      ///< answers readValue and writeValue
    bool startWindow = true;                 ///< a field application that announces "configurationLoaded"
    std::optional<std::uint64_t> lastChange; ///< last change seen before a reconnect
    std::string server;                      ///< the server text of that time; "" = none
};

struct Subscribe {
    std::optional<std::uint64_t> lastChange;
    std::string server;
};

struct SetValueFormat {
    std::string format;
};

struct SetValue {
    DataPointName dataPoint;
    std::string value; ///< "" is null
    bool readInternal = false;
    bool response = false;
};

struct GetValue {
    DataPointName dataPoint;
    bool readInternal = false;
};

struct RequestValue {
    DataPointName dataPoint;
    bool readInternal = false;
};

struct GetUrn {
    std::uint32_t id = 0;
};

struct GetId {
    std::string urn;
};

/// A command as the device stack reads it. Members that a command does not have are at their defaults.
struct Command {
    std::string command;
    std::string eventType;                   ///< EmitEvent
    std::string to;                          ///< EmitEvent: identity; "" = every other application
    std::string message;                     ///< EmitEvent
    std::string type;                        ///< Restart
    bool cached = false;                     ///< GetProcessView
    std::optional<DataPointName> dataPoint;  ///< GetHistory
    std::optional<std::uint64_t> maxEntries; ///< GetHistory
};

/// A command as a client sends it: the text of one JSON object, in one line (see NormaliseObject()).
struct CommandText {
    std::string json;
};

struct GetConfiguration {
    int scope = 1;
};

struct SetConfiguration {
    std::map<std::string, std::string> settings;
};

// Messages of the device stack.

struct ValueChanged {
    std::uint32_t id = 0;
    std::string urn;
    std::string value;
    std::string origin;
    std::string time; ///< UTC, "2024-05-01T10:00:00.123Z"
    std::uint64_t change = 0;

    bool operator==(const ValueChanged&) const = default;
};

struct ValueAnswered {
    std::string request; ///< the text that answered requestValue
    std::uint32_t id = 0;
    std::string urn;
    std::string value;
    std::optional<Error> error;
};

struct ConfigurationChanged {
    std::uint32_t id = 0;
    std::string key;
    std::string value;
};

struct ApplicationEvent {
    std::string eventType;
    std::string sender; ///< name of the sending application
    std::string message;
};

struct ReadValue {
    std::uint32_t id = 0;
    std::string urn;
};

struct WriteValue {
    std::uint32_t id = 0;
    std::string urn;
    std::string value;
};

// Answers.

/// The answer to a request: an error, or the result as JSON text for the Read functions below.
struct Reply {
    std::optional<Error> error;
    std::string result;
};

struct RegisterResult {
    std::string application; ///< the identity; "" after subscribe
    std::string server;      ///< made anew at each start of the device stack
    std::uint64_t change = 0;
};

struct SetValueResult {
    std::uint64_t change = 0;
};

/// Result of getValue.
using DataPointValue = ValueChanged;

struct RequestValueResult {
    std::string request;
};

struct GetUrnResult {
    std::string urn;
};

struct GetIdResult {
    std::uint32_t id = 0;
};

/// Answer of an application to readValue and writeValue.
struct HandledResult {
    bool handled = false;
};

// Reading lines.

/// One line of a client. `message` is an Error when the line is none of the messages; to be answered with it
/// unless `id` is "".
struct FromApplication {
    std::string id;
    std::variant<Error, Register, Subscribe, SetValueFormat, SetValue, GetValue, RequestValue, GetUrn, GetId,
                 Command, GetConfiguration, SetConfiguration, Reply>
        message;
};

/// One line of the device stack. `message` is an Error when the line is none of the messages; one that has no
/// `id` or an unknown method is to be ignored, so that the device stack may learn new ones.
struct FromDeviceStack {
    std::string id;
    std::variant<Error, ValueChanged, ValueAnswered, ConfigurationChanged, ApplicationEvent, ReadValue,
                 WriteValue, Reply>
        message;
};

/// Reads one line, without its line feed. Never throws on bad input.
FromApplication ReadApplicationLine(std::string_view line);
FromDeviceStack ReadDeviceStackLine(std::string_view line);

/// Reads the result of a Reply. False when it is not what the method answers; `result` is then untouched.
bool ReadResult(std::string_view json, RegisterResult& result);
bool ReadResult(std::string_view json, SetValueResult& result);
bool ReadResult(std::string_view json, DataPointValue& result);
bool ReadResult(std::string_view json, RequestValueResult& result);
bool ReadResult(std::string_view json, GetUrnResult& result);
bool ReadResult(std::string_view json, GetIdResult& result);
bool ReadResult(std::string_view json, HandledResult& result);

// Writing lines. Each result is one message with its line feed at the end.

std::string ToLine(std::string_view id, const Register& message);
std::string ToLine(std::string_view id, const Subscribe& message);
std::string ToLine(std::string_view id, const SetValueFormat& message);
std::string ToLine(std::string_view id, const SetValue& message);
std::string ToLine(std::string_view id, const GetValue& message);
std::string ToLine(std::string_view id, const RequestValue& message);
std::string ToLine(std::string_view id, const GetUrn& message);
std::string ToLine(std::string_view id, const GetId& message);
std::string ToLine(std::string_view id, const CommandText& message);
std::string ToLine(std::string_view id, const GetConfiguration& message);
std::string ToLine(std::string_view id, const SetConfiguration& message);
std::string ToLine(std::string_view id, const ReadValue& message);
std::string ToLine(std::string_view id, const WriteValue& message);

std::string ToLine(const ValueChanged& message);
std::string ToLine(const ValueAnswered& message);
std::string ToLine(const ConfigurationChanged& message);
std::string ToLine(const ApplicationEvent& message);

std::string ReplyLine(std::string_view id, const RegisterResult& result);
std::string ReplyLine(std::string_view id, const SetValueResult& result);
std::string ReplyLine(std::string_view id, const DataPointValue& result);
std::string ReplyLine(std::string_view id, const RequestValueResult& result);
std::string ReplyLine(std::string_view id, const GetUrnResult& result);
std::string ReplyLine(std::string_view id, const GetIdResult& result);
std::string ReplyLine(std::string_view id, const HandledResult& result);

/// A reply whose result is JSON text already: `{}`, a configuration, a command's response.
std::string ReplyLine(std::string_view id, std::string_view resultJson);

/// An error reply; without an `id` it is answered to the id null, as JSON-RPC has it.
std::string ErrorLine(std::string_view id, const Error& error);

} // namespace DeviceStack
