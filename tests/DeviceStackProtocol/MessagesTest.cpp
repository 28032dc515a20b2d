#include "DeviceStackProtocol/Messages.h"

#include <gtest/gtest.h>

namespace {

using namespace DeviceStack;

/// Without its line feed, which must be there and be the only one.
std::string_view Content(const std::string& line) {
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    return std::string_view(line).substr(0, line.size() - 1);
}

template <typename Message>
Message FromApp(const std::string& line, std::string_view id) {
    const auto read = ReadApplicationLine(Content(line));
    EXPECT_EQ(read.id, id);
    const auto* message = std::get_if<Message>(&read.message);
    EXPECT_TRUE(message) << line;
    return message ? *message : Message{};
}

template <typename Message>
Message FromStack(const std::string& line, std::string_view id) {
    const auto read = ReadDeviceStackLine(Content(line));
    EXPECT_EQ(read.id, id);
    const auto* message = std::get_if<Message>(&read.message);
    EXPECT_TRUE(message) << line;
    return message ? *message : Message{};
}

Error AppError(std::string_view line, std::string_view id = "7") {
    const auto read = ReadApplicationLine(line);
    EXPECT_EQ(read.id, id) << line;
    const auto* error = std::get_if<Error>(&read.message);
    EXPECT_TRUE(error) << line;
    return error ? *error : Error{};
}

TEST(Messages, RegisterTravelsWhole) {
    Register message{"DscKnxAppPrg", "field", "KNX", true, true, false, 12, "run"};
    const auto read = FromApp<Register>(ToLine("1", message), "1");
    EXPECT_EQ(read.name, "DscKnxAppPrg");
    EXPECT_EQ(read.type, "field");
    EXPECT_EQ(read.instance, "KNX");
    EXPECT_TRUE(read.events);
    EXPECT_TRUE(read.field);
    EXPECT_FALSE(read.startWindow);
    EXPECT_EQ(read.lastChange, 12u);
    EXPECT_EQ(read.server, "run");
}

TEST(Messages, RegisterHasDefaults) {
    const auto read = FromApp<Register>(
        R"({"jsonrpc":"2.0","id":"x","method":"register","params":{"name":"a","type":"b","instance":"c"}})"
        "\n",
        "\"x\"");
    EXPECT_FALSE(read.events);
    EXPECT_FALSE(read.field);
    EXPECT_TRUE(read.startWindow);
    EXPECT_FALSE(read.lastChange);
}

TEST(Messages, RequestsOfAClientTravelWhole) {
    const auto subscribe = FromApp<Subscribe>(ToLine("2", Subscribe{7, "s"}), "2");
    EXPECT_EQ(subscribe.lastChange, 7u);
    EXPECT_EQ(subscribe.server, "s");
    EXPECT_EQ(FromApp<SetValueFormat>(ToLine("3", SetValueFormat{"Native"}), "3").format, "Native");

    const SetValue set{DataPointName::OfUrn("urn:oxn:dp:house:Ä"), "21.5\n\"x\"", true, false};
    const auto setRead = FromApp<SetValue>(ToLine("", set), "");
    EXPECT_EQ(setRead.dataPoint, set.dataPoint);
    EXPECT_EQ(setRead.value, set.value);
    EXPECT_TRUE(setRead.readInternal);
    EXPECT_FALSE(setRead.response);
    EXPECT_TRUE(FromApp<SetValue>(ToLine("4", SetValue{set.dataPoint, "", false, true}), "4").response);

    const auto get =
        FromApp<GetValue>(ToLine("5", GetValue{DataPointName::OfName("Kitchen.Light"), true}), "5");
    EXPECT_EQ(get.dataPoint, DataPointName::OfName("Kitchen.Light"));
    EXPECT_TRUE(get.readInternal);
    const auto request =
        FromApp<RequestValue>(ToLine("6", RequestValue{DataPointName::OfId(4294967295u), true}), "6");
    EXPECT_EQ(request.dataPoint, DataPointName::OfId(4294967295u));
    EXPECT_TRUE(request.readInternal);
    EXPECT_EQ(FromApp<GetUrn>(ToLine("7", GetUrn{2001}), "7").id, 2001u);
    EXPECT_EQ(FromApp<GetId>(ToLine("8", GetId{"urn:oxn:dp:house:a"}), "8").urn, "urn:oxn:dp:house:a");
    EXPECT_EQ(FromApp<GetConfiguration>(ToLine("9", GetConfiguration{1}), "9").scope, 1);
    const SetConfiguration settings{{{"Ntp", "true"}, {"Other", "\t"}}};
    EXPECT_EQ(FromApp<SetConfiguration>(ToLine("10", settings), "10").settings, settings.settings);
}

TEST(Messages, ACommandIsReadIntoItsMembers) {
    const auto event = FromApp<Command>(
        ToLine("1",
               CommandText{
                   R"({"command":"EmitEvent","eventType":"application","to":"a::b::c","message":"!0012"})"}),
        "1");
    EXPECT_EQ(event.command, "EmitEvent");
    EXPECT_EQ(event.eventType, "application");
    EXPECT_EQ(event.to, "a::b::c");
    EXPECT_EQ(event.message, "!0012");
    EXPECT_EQ(
        FromApp<Command>(ToLine("1", CommandText{R"({"command":"Restart", "type":"Device"})"}), "1").type,
        "Device");
    EXPECT_TRUE(
        FromApp<Command>(ToLine("1", CommandText{R"({"command":"GetProcessView","cached":true})"}), "1")
            .cached);
    const auto history = FromApp<Command>(
        ToLine("1", CommandText{R"({"command":"GetHistory","name":"x","maxEntries":3})"}), "1");
    EXPECT_EQ(history.dataPoint, DataPointName::OfName("x"));
    EXPECT_EQ(history.maxEntries, 3u);
}

TEST(Messages, MessagesOfTheDeviceStackTravelWhole) {
    const ValueChanged changed{2001, "urn:oxn:dp:house:a", "1", "a::b::c", "2024-05-01T10:00:00.123Z", 9};
    EXPECT_EQ(FromStack<ValueChanged>(ToLine(changed), ""), changed);

    const auto answered = FromStack<ValueAnswered>(
        ToLine(ValueAnswered{"getValue#1", 5, "u", "", Error{kNoAnswer, "no answer"}}), "");
    EXPECT_EQ(answered.request, "getValue#1");
    EXPECT_EQ(answered.id, 5u);
    EXPECT_EQ(answered.error, (Error{kNoAnswer, "no answer"}));
    EXPECT_FALSE(FromStack<ValueAnswered>(ToLine(ValueAnswered{"r", 5, "u", "1", {}}), "").error);

    const auto configuration =
        FromStack<ConfigurationChanged>(ToLine(ConfigurationChanged{0, "Project", "ok"}), "");
    EXPECT_EQ(configuration.key, "Project");
    EXPECT_EQ(configuration.value, "ok");
    const auto event = FromStack<ApplicationEvent>(ToLine(ApplicationEvent{"application", "X", "?0005"}), "");
    EXPECT_EQ(event.eventType, "application");
    EXPECT_EQ(event.sender, "X");
    EXPECT_EQ(event.message, "?0005");
    EXPECT_EQ(FromStack<ReadValue>(ToLine("11", ReadValue{3, "u"}), "11").id, 3u);
    EXPECT_EQ(FromStack<WriteValue>(ToLine("12", WriteValue{3, "u", "v"}), "12").value, "v");
}

template <typename Result>
Result ResultOf(const std::string& line) {
    const auto reply = FromStack<Reply>(line, "5");
    EXPECT_FALSE(reply.error);
    Result result;
    EXPECT_TRUE(ReadResult(reply.result, result)) << line;
    return result;
}

TEST(Messages, ResultsTravelWhole) {
    const auto registered = ResultOf<RegisterResult>(ReplyLine("5", RegisterResult{"a::b::c", "run", 4}));
    EXPECT_EQ(registered.application, "a::b::c");
    EXPECT_EQ(registered.server, "run");
    EXPECT_EQ(registered.change, 4u);
    EXPECT_EQ(ResultOf<SetValueResult>(ReplyLine("5", SetValueResult{17})).change, 17u);
    const DataPointValue value{1, "u", "v", "o", "t", 3};
    EXPECT_EQ(ResultOf<DataPointValue>(ReplyLine("5", value)), value);
    EXPECT_EQ(ResultOf<RequestValueResult>(ReplyLine("5", RequestValueResult{"r"})).request, "r");
    EXPECT_EQ(ResultOf<GetUrnResult>(ReplyLine("5", GetUrnResult{"u"})).urn, "u");
    EXPECT_EQ(ResultOf<GetIdResult>(ReplyLine("5", GetIdResult{6})).id, 6u);
    EXPECT_TRUE(ResultOf<HandledResult>(ReplyLine("5", HandledResult{true})).handled);
    EXPECT_EQ(FromStack<Reply>(ReplyLine("5", R"({"response":{}})"), "5").result, R"({"response":{}})");
}

TEST(Messages, AWrongResultLeavesTheTargetAlone) {
    SetValueResult result{9};
    EXPECT_FALSE(ReadResult("{}", result));
    EXPECT_FALSE(ReadResult("[]", result));
    EXPECT_FALSE(ReadResult(R"({"change":-1})", result));
    EXPECT_FALSE(ReadResult("", result));
    EXPECT_EQ(result.change, 9u);
}

TEST(Messages, ErrorsTravelWhole) {
    const auto reply = FromApp<Reply>(ErrorLine("\"a\"", Error{kValueDoesNotFit, "above 255"}), "\"a\"");
    EXPECT_EQ(reply.error, (Error{kValueDoesNotFit, "above 255"}));
    EXPECT_EQ(ErrorLine("", Error{kParseError, "x"}),
              "{\"jsonrpc\":\"2.0\",\"id\":null,\"error\":{\"code\":-32700,\"message\":\"x\"}}\n");
}

TEST(Messages, ANullErrorBesideAResultIsNone) {
    const auto reply =
        FromApp<Reply>("{\"jsonrpc\":\"2.0\",\"id\":5,\"result\":{\"handled\":true},\"error\":null}\n", "5");
    EXPECT_FALSE(reply.error);
    EXPECT_EQ(reply.result, R"({"handled":true})");
    EXPECT_TRUE(FromApp<Reply>("{\"jsonrpc\":\"2.0\",\"id\":5,\"error\":null}\n", "5").error);
    EXPECT_TRUE(
        FromApp<Reply>("{\"jsonrpc\":\"2.0\",\"id\":5,\"result\":{},\"error\":{\"code\":1}}\n", "5").error);
}

TEST(Messages, TheGetValueOfTheDocumentationIsRead) {
    const auto read =
        FromApp<GetValue>(R"({"jsonrpc":"2.0","id":1,"method":"getValue","params":{"name":"Kitchen.Light"}})"
                          "\n",
                          "1");
    EXPECT_EQ(read.dataPoint, DataPointName::OfName("Kitchen.Light"));
    EXPECT_FALSE(read.readInternal);
}

TEST(Messages, BadEnvelopesAreRefusedByTheirKind) {
    EXPECT_EQ(AppError("not json", "").code, kParseError);
    EXPECT_EQ(AppError("", "").code, kParseError);
    EXPECT_EQ(AppError("{\"a\":\"\xFF\"}", "").code, kParseError);
    EXPECT_EQ(AppError("[]", "").message, "batches of messages are not taken");
    EXPECT_EQ(AppError("5", "").code, kInvalidRequest);
    EXPECT_EQ(AppError(R"({"id":7,"method":"getUrn","params":{"id":1}})").message,
              "member 'jsonrpc' must be \"2.0\"");
    EXPECT_EQ(AppError(R"({"jsonrpc":"2.0","id":7})").message, "member 'method' must be a text");
    EXPECT_EQ(AppError(R"({"jsonrpc":"2.0","id":1.5,"method":"getUrn"})", "").message,
              "member 'id' must be a text or a whole number");
    EXPECT_EQ(AppError(R"({"jsonrpc":"2.0","id":7,"method":"reboot"})"),
              (Error{kMethodNotFound, "no such method: 'reboot'"}));
}

TEST(Messages, BadParamsAreNamed) {
    const auto bad = [](std::string_view method, std::string_view params) {
        return AppError(R"({"jsonrpc":"2.0","id":7,"method":")" + std::string(method) + R"(","params":)" +
                        std::string(params) + "}");
    };
    EXPECT_EQ(bad("getUrn", "[1]"), (Error{kInvalidParams, "member 'params' must be an object"}));
    EXPECT_EQ(bad("getUrn", "{}").message, "member 'id' is missing");
    EXPECT_EQ(bad("getUrn", R"({"id":-1})").message,
              "member 'id' must be a whole number from 0 to 4294967295");
    EXPECT_EQ(bad("getUrn", R"({"id":4294967296})").message, "member 'id' is above 4294967295");
    EXPECT_EQ(bad("setValue", R"({"id":1,"value":5})").message, "member 'value' must be a text");
    EXPECT_EQ(bad("setValue", R"({"id":1,"value":"5","response":1})").message,
              "member 'response' must be true or false");
    const auto* which = "exactly one of the members 'id', 'urn' and 'name' must name the data point";
    EXPECT_EQ(bad("getValue", "{}").message, which);
    EXPECT_EQ(bad("getValue", R"({"id":1,"name":"a"})").message, which);
    EXPECT_EQ(bad("command", R"({"command":"EmitEvent"})").message, "member 'command' must be an object");
    EXPECT_EQ(bad("command", R"({"command":{}})").message, "command: member 'command' is missing");
    EXPECT_EQ(bad("setConfiguration", R"({"settings":{"Ntp":true}})").message,
              "setting 'Ntp' must be a text");
}

TEST(Messages, MembersThatAreNotKnownAreIgnored) {
    EXPECT_EQ(FromApp<GetUrn>(
                  R"({"jsonrpc":"2.0","id":1,"method":"getUrn","params":{"id":3,"new":[1]},"extra":null})"
                  "\n",
                  "1")
                  .id,
              3u);
}

} // namespace
