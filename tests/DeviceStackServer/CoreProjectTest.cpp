#include "CoreBench.h"

namespace DeviceStackServer {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string Project(const std::string& dataPoints, const std::string& device = "house") {
    return R"({"version":1,"device":")" + device + R"(","dataPoints":[)" + dataPoints + "]}";
}

constexpr const char* kA = R"({"id":3001,"name":"A","dpt":"5.010","persistent":true})";
constexpr const char* kB = R"({"id":3002,"name":"B","dpt":"5.010"})";

class CoreProject : public testing::Test, public CoreBench {
protected:
    std::string Take(const std::string& project) { return core.SetProject(ProjectOf(project), now); }
    using CoreBench::Take;
};

TEST_F(CoreProject, ValuesSurviveANewProjectByTheirUrn) {
    Begin(Project(std::string(kA) + "," + kB));
    const auto client = Register("a::b::c");
    Set(client, 3001, "1");
    Set(client, 3002, "2");
    EXPECT_EQ(Take(Project(std::string(kB) + R"(,{"id":3003,"name":"C","dpt":"5.010","initial":"9"})")), "");
    EXPECT_THAT(Ask(client, "getValue", R"({"name":"B"})"), ElementsAre("value 2"));
    EXPECT_THAT(Ask(client, "getValue", R"({"name":"C"})"), ElementsAre("value 9"));
    EXPECT_THAT(Ask(client, "getValue", R"({"name":"A"})"), ElementsAre(HasSubstr("error 1")));
}

TEST_F(CoreProject, APersistentValueComesBackWithItsDataPoint) {
    Begin(Project(std::string(kA) + "," + kB));
    const auto client = Register("a::b::c");
    Set(client, 3001, "1");
    EXPECT_EQ(Take(Project(kB)), "");
    EXPECT_EQ(Take(Project(kA)), "");
    EXPECT_THAT(Ask(client, "getValue", R"({"name":"A"})"), ElementsAre("value 1"));
}

TEST_F(CoreProject, AValueThatDoesNotFitTheNewTypeGivesWayToTheInitialOne) {
    Begin(Project(R"({"id":3001,"name":"A","dpt":"16.001"},{"id":3002,"name":"B","dpt":"16.001"})"));
    const auto client = Register("a::b::c");
    Set(client, 3001, "words");
    Set(client, 3002, "words");
    EXPECT_EQ(Take(Project(std::string(R"({"id":3001,"name":"A","dpt":"5.010","initial":"4"},)") + kB)), "");
    EXPECT_THAT(Ask(client, "getValue", R"({"name":"A"})"), ElementsAre("value 4"));
    EXPECT_THAT(Ask(client, "getValue", R"({"name":"B"})"), ElementsAre(HasSubstr("error 3")));
}

TEST_F(CoreProject, AnIdIsNeverGivenToAnotherUrn) {
    Begin(Project(kA));
    EXPECT_EQ(Take(Project(kB)), "");
    EXPECT_EQ(Take(Project(R"({"id":3001,"name":"Other","dpt":"5.010"})")),
              "the id 3001 belonged to urn:oxn:dp:house:A in an earlier project and cannot go to "
              "urn:oxn:dp:house:Other; take an id that was never used");
    const auto client = Connect();
    EXPECT_THAT(Ask(client, "getUrn", R"({"id":3002})"),
                ElementsAre(HasSubstr(":B"))); // the old one is in force
    EXPECT_THAT(Ask(client, "getUrn", R"({"id":3001})"), ElementsAre(HasSubstr("error 1")));
}

TEST_F(CoreProject, AUrnKeepsItsId) {
    Begin(Project(kA));
    EXPECT_EQ(Take(Project(R"({"id":3009,"name":"A","dpt":"5.010"})")),
              "urn:oxn:dp:house:A has had the id 3001 in an earlier project and cannot get 3009; give it "
              "back its id");
}

TEST_F(CoreProject, IdsOfAnEarlierRunCountAsWell) {
    StateImage image;
    image.ids["urn:oxn:dp:house:Old"] = 3001;
    core.Restore(image);
    EXPECT_THAT(Take(Project(kA)), HasSubstr("the id 3001 belonged to urn:oxn:dp:house:Old"));
    EXPECT_EQ(Take(Project(kB)), "");
    EXPECT_EQ(idsChanged, 1);
    EXPECT_EQ(core.CurrentState().ids.size(), 2u);
    EXPECT_EQ(Take(Project(kB)), "");
    EXPECT_EQ(idsChanged, 1); // nothing new
}

TEST_F(CoreProject, RestoredValuesAreNoChanges) {
    StateImage image;
    image.values["urn:oxn:dp:house:A"] = {"200", "web::page::1", Milliseconds(1000)};
    image.values["urn:oxn:dp:house:Gone"] = {"1", "x", Milliseconds(1000)};
    core.Restore(image);
    Begin(Project(kA));
    const auto client = Connect();
    EXPECT_THAT(Ask(client, "subscribe", R"({"lastChange":0,"server":"former"})"),
                ElementsAre(R"(ok {"server":"run","change":0})"));
    Call(client, "getValue", R"({"id":3001})");
    EXPECT_THAT(
        TakeRaw(client),
        ElementsAre(HasSubstr(
            R"("value":"200","origin":"web::page::1","time":"1970-01-01T00:00:01.000Z","change":0)")));
    EXPECT_EQ(core.CurrentState().values, image.values);
}

TEST_F(CoreProject, AStoredValueThatNoLongerFitsIsDropped) {
    StateImage image;
    image.values["urn:oxn:dp:house:A"] = {"1000", "x", Milliseconds(1000)};
    core.Restore(image);
    Begin(Project(kA));
    EXPECT_THAT(Ask(Connect(), "getValue", R"({"id":3001})"), ElementsAre(HasSubstr("error 3")));
}

TEST_F(CoreProject, WhatADeviceSentSurvivesARestartAndANewProject) {
    StateImage image;
    image.values["urn:oxn:dp:house:A"] = {"300", "DscKnxAppPrg::field::KNX", Milliseconds(1000)};
    core.Restore(image);
    Begin(Project(kA));
    EXPECT_THAT(Ask(Connect(), "getValue", R"({"id":3001})"), ElementsAre("value 300"));
    EXPECT_EQ(Take(Project(std::string(kA) + "," + kB)), "");
    EXPECT_THAT(Ask(Connect(), "getValue", R"({"id":3001})"), ElementsAre("value 300"));
}

TEST_F(CoreProject, AnInitialValueIsSpeltAsAWrittenOne) {
    Begin(Project(std::string(R"({"id":3001,"name":"A","dpt":"5.010","initial":"007"},)") + kB));
    const auto client = Connect();
    EXPECT_THAT(Ask(client, "getValue", R"({"id":3001})"), ElementsAre("value 7"));
    // Also where it takes the place of a value that does not fit a new type.
    EXPECT_EQ(Take(Project(R"({"id":3003,"name":"C","dpt":"16.001"})")), "");
    Set(client, 3003, "words");
    EXPECT_EQ(Take(Project(R"({"id":3003,"name":"C","dpt":"5.010","initial":"008"})")), "");
    EXPECT_THAT(Ask(client, "getValue", R"({"id":3003})"), ElementsAre("value 8"));
}

TEST_F(CoreProject, AnInitialValueIsNotStored) {
    Begin(Project(R"({"id":3001,"name":"A","dpt":"5.010","persistent":true,"initial":"5"})"));
    EXPECT_TRUE(core.CurrentState().values.empty());
}

TEST_F(CoreProject, AnInvalidValueStaysInvalidAcrossARestart) {
    StateImage image;
    image.values["urn:oxn:dp:house:A"] = {"", "x", Milliseconds(1000)};
    core.Restore(image);
    Begin(Project(R"({"id":3001,"name":"A","dpt":"5.010","persistent":true,"initial":"5"})"));
    EXPECT_THAT(Ask(Connect(), "getValue", R"({"id":3001})"), ElementsAre(HasSubstr("error 3")));
}

TEST_F(CoreProject, TheFixedDataPointsAreThere) {
    Begin(Project(kA));
    const auto client = Connect();
    EXPECT_THAT(Ask(client, "getValue", R"({"id":1000})"), ElementsAre("value house"));
    EXPECT_THAT(Ask(client, "getValue", R"({"id":1001})"), ElementsAre("value 1.2.3"));
    EXPECT_THAT(Ask(client, "getValue", R"({"id":1002})"), ElementsAre("value 0"));
    EXPECT_THAT(Ask(client, "getValue", R"({"id":1003})"), ElementsAre("value 0"));
    EXPECT_THAT(Ask(client, "setValue", R"({"id":1000,"value":"x"})"), ElementsAre(HasSubstr("error 5")));
}

TEST_F(CoreProject, TheFixedDataPointsSurviveANewProject) {
    Begin(Project(kA));
    const auto program = Register("DscKnxAppPrg::field::KNX", R"("events":true,"field":true)");
    const auto listener = Register("listen::app::1");
    EmitEvent(program, "configurationLoaded");
    EXPECT_EQ(Take(Project(kA)), "");
    EXPECT_THAT(Ask(listener, "getValue", R"({"id":1002})"), ElementsAre("value 1"));
}

TEST_F(CoreProject, TheOwnerOfTheProjectIsTheProgram) {
    Begin(R"({"version":1,"device":"house","knx":{"owner":"DscKnxAppPrg::field::2"},"dataPoints":[]})");
    Register("DscKnxAppPrg::field::KNX", R"("events":true,"field":true)");
    EXPECT_THAT(Ask(Connect(), "getValue", R"({"id":1003})"), ElementsAre("value 0"));
    Register("DscKnxAppPrg::field::2", R"("events":true)"); // not as a field application
    EXPECT_THAT(Ask(Connect(), "getValue", R"({"id":1003})"), ElementsAre("value 0"));
}

TEST_F(CoreProject, EverybodyIsToldOnceTheFileWasLookedAt) {
    Begin(Project(kA));
    const auto client = Register("a::b::c");
    core.AnnounceProject("ok", now);
    core.AnnounceProject("project.json: 1:1: not JSON", now);
    EXPECT_THAT(Take(client),
                ElementsAre("configuration Project=ok", "configuration Project=project.json: 1:1: not JSON"));
}

} // namespace
} // namespace DeviceStackServer
