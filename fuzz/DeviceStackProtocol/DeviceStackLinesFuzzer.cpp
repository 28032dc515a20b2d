// What a peer sends: one octet for the size of the pieces it comes in, then the bytes. Every line is read as
// a message of a client and as one of the device stack; the answer to it is one line, and a value that was
// read says the same after it was written again.

#include "Fuzz.h"

#include "DeviceStackProtocol/Json.h"
#include "DeviceStackProtocol/LineBuffer.h"
#include "DeviceStackProtocol/Messages.h"

#include <string>
#include <string_view>

namespace {

using namespace DeviceStack;

constexpr std::size_t kMaxLine = 4096;

bool IsOneLine(std::string_view line) {
    return !line.empty() && line.find('\n') == line.size() - 1;
}

std::string_view WithoutFeed(const std::string& line) {
    Fuzz::Check(IsOneLine(line));
    return std::string_view(line).substr(0, line.size() - 1);
}

void CheckApplicationLine(std::string_view line) {
    const auto read = ReadApplicationLine(line);
    if (const auto* error = std::get_if<Error>(&read.message)) {
        Fuzz::Check(error->code != 0 && !error->message.empty());
        const auto answer = ReadDeviceStackLine(WithoutFeed(ErrorLine(read.id, *error)));
        Fuzz::Check(std::get<Reply>(answer.message).error == *error);
    } else if (const auto* set = std::get_if<SetValue>(&read.message)) {
        const auto again = ReadApplicationLine(WithoutFeed(ToLine(read.id, *set)));
        Fuzz::Check(again.id == read.id);
        Fuzz::Check(std::get<SetValue>(again.message).value == set->value);
        Fuzz::Check(std::get<SetValue>(again.message).dataPoint == set->dataPoint);
    } else if (const auto* reply = std::get_if<Reply>(&read.message)) {
        HandledResult handled;
        ReadResult(reply->result, handled);
    }
}

void CheckDeviceStackLine(std::string_view line) {
    const auto read = ReadDeviceStackLine(line);
    if (const auto* changed = std::get_if<ValueChanged>(&read.message)) {
        const auto again = ReadDeviceStackLine(WithoutFeed(ToLine(*changed)));
        Fuzz::Check(std::get<ValueChanged>(again.message) == *changed);
    } else if (const auto* reply = std::get_if<Reply>(&read.message)) {
        DataPointValue value;
        RegisterResult registered;
        ReadResult(reply->result, value);
        ReadResult(reply->result, registered);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1)
        return 0;
    const std::size_t piece = data[0] + std::size_t(1);
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    LineBuffer buffer(kMaxLine);
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        buffer.Append(bytes.substr(at, piece));
        while (const auto line = buffer.Next()) {
            Fuzz::Check(line->size() <= kMaxLine && line->find('\n') == std::string_view::npos);
            CheckApplicationLine(*line);
            CheckDeviceStackLine(*line);
        }
    }
    std::string quoted;
    AppendJsonString(quoted, bytes);
    std::string oneLine;
    std::string error;
    Fuzz::Check(NormaliseObject("{\"a\":" + quoted + "}", oneLine, error)); // whatever the bytes were
    NormaliseObject(bytes, oneLine, error);
    return 0;
}
