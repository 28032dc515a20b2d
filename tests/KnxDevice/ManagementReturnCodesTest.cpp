// What the extended services say when they refuse: a return code to the tool, a reason to the log.
#include "ManagedDevice.h"

namespace KnxDevice {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ReturnCodes : public Managed {
protected:
    /// "fd: there is no such property": the code at the end of the answer to the request, and the reason.
    std::string Code(std::string_view request) {
        m_reasons.clear();
        const auto answer = Ask(request);
        const auto code = answer.size() < 2 ? answer : answer.substr(answer.size() - 2);
        return m_reasons.empty() ? code : fmt::format("{}: {}", code, fmt::join(m_reasons, ", "));
    }
    /// The code in front, where memory services have it.
    std::string MemoryCode(std::string_view request) {
        m_reasons.clear();
        const auto answer = Ask(request);
        const auto code = answer.size() < 6 ? answer : answer.substr(4, 2);
        return m_reasons.empty() ? code : fmt::format("{}: {}", code, fmt::join(m_reasons, ", "));
    }
    /// A load event to the address table.
    std::string Control(std::string_view event) {
        return Code(fmt::format("01ce 0001 001005 01 0001 {}", event));
    }
    /// 16 octets at 200h, loading.
    void AllocateProgram() {
        Ask("03d7 04 05 1001 01000000000000000000");
        Ask("03d7 04 05 1001 030b00000010010000 00");
        ASSERT_EQ("03d60407100100000200", Ask("03d5 04 07 1001"));
    }
    /// Nobody may do anything without a key.
    void LockEverything() {
        for (AccessLevel level = 0; level < kAnybody; ++level)
            ASSERT_TRUE(m_device.SetKey(level, 0x11223344));
    }
};

TEST_F(ReturnCodes, OfAPropertyThatIsWritten) {
    EXPECT_EQ("00", Code("01ce 0000 001036 01 0001 01"));
    EXPECT_EQ("fd: there is no such property", Code("01ce 0000 0010ff 01 0001 00"));
    EXPECT_EQ("fd: there is no such property", Code("01ce 0000 001000 01 0001 00")) << "without a number";
    EXPECT_EQ("fd: there is no such property", Code("01ce 0000 002036 01 0001 00")) << "no such object";
    EXPECT_EQ("fd: the property has no such element", Code("01ce 0000 001036 01 0002 00"));
    EXPECT_EQ("fd: the property has no such element", Code("01ce 0000 001036 02 0001 0000"));
    EXPECT_EQ("fd: the property has no such element", Code("01ce 0000 001036 01 0000 0000"));
    EXPECT_EQ("fd: the property has no such element", Code("01ce 0001 001005 01 0002 01"));
    EXPECT_EQ("fe: a value of the property has another length", Code("01ce 0000 001036 01 0001 0101"));
    EXPECT_EQ("fb: the property is read only", Code("01ce 0000 00100b 01 0001 000000000000"));
    EXPECT_EQ("01cf000000100b010001fb", Ask("01ce 0000 00100b 01 0001 000000000000"))
        << "the answer names what was asked for";
    LockEverything();
    EXPECT_EQ("fb: the property is read only", Code("01ce 0000 00100b 01 0001 000000000000"));
    EXPECT_EQ("fc: the access level does not allow it", Code("01ce 0000 001036 01 0001 00"));
    EXPECT_EQ("fc: the access level does not allow it", Control("01"));
    EXPECT_TRUE(m_device.IsInProgrammingMode());
    EXPECT_EQ(": the access level does not allow it", Code("01d0 0000 001036 01 0001 00")) << "unconfirmed";
}

TEST_F(ReturnCodes, OfAPropertyOfTheApplicationProgram) {
    auto* const object = m_objects.CreateInterfaceObject(50001);
    object->CreateProperty(201, 0x11, 1, 1)->SetActive(1);
    object->CreateProperty(202, 0x11, 1, 0)->SetActive(1);
    auto* const text = object->CreateProperty(203, 0x10, 1, 1); // of variable length
    object->CreateProperty(204, 0x11, 1, 1);
    text->SetActive(1);
    EXPECT_EQ("00", Code("01ce c351 0010c9 01 0001 05"));
    EXPECT_EQ("fe: a value of the property has another length", Code("01ce c351 0010c9 01 0001 0505"));
    EXPECT_EQ("fd: the property has no such element", Code("01ce c351 0010c9 01 0002 05"));
    EXPECT_EQ("fb: the property is read only", Code("01ce c351 0010ca 01 0001 05"));
    EXPECT_EQ("fb: the property is read only", Code("01ce c351 001001 01 0001 0505")) << "its type";
    EXPECT_EQ("00", Code("01ce c351 0010cb 01 0001 0102030405"));
    EXPECT_EQ("0102030405", text->GetValue().ToString());
    EXPECT_EQ("fd: there is no such property", Code("01ce c351 0010cc 01 0001 05")) << "it is not shown";
    LockEverything();
    EXPECT_EQ("fc: the access level does not allow it", Code("01ce c351 0010c9 01 0001 06"));
    EXPECT_EQ("05", object->GetProperty(201)->GetValue().ToString());
}

TEST_F(ReturnCodes, OfALoadEvent) {
    EXPECT_EQ("00", Control("00"));
    EXPECT_EQ("00", Control("04"));
    EXPECT_EQ("f3: the load state does not allow the load event", Control("02")) << "nothing was loaded";
    EXPECT_EQ("f3: the load state does not allow the load event", Control("01")) << "but unloading";
    EXPECT_EQ(LoadState::Error, StateOf(StandardObject::AddressTable));
    EXPECT_EQ("00", Control("04"));
    EXPECT_EQ("f3: the load state does not allow the load event", Control("03 0b 00000004 01 00 0000"));
    EXPECT_EQ("00", Control("04"));
    EXPECT_EQ("f2: there is no such load event or load control", Control("05"));
    EXPECT_EQ("00", Control("04"));
    EXPECT_EQ("00", Control("01"));
    EXPECT_EQ("f2: there is no such load event or load control", Control("03 0a 00000004 01 00 0000"));
}

TEST_F(ReturnCodes, OfALoadEventWithDataThatCannotBe) {
    const auto begin = [this] {
        EXPECT_EQ("00", Control("04"));
        EXPECT_EQ("00", Control("01"));
    };
    begin();
    EXPECT_EQ("f1: there is no room for the memory asked for", Control("03 0b ff000000 01 00 0000"));
    begin();
    EXPECT_EQ("f8: what is to be loaded is not valid", Control("03 0b 00000000 01 00 0000"));
    begin();
    EXPECT_EQ("f8: what is to be loaded is not valid", Control("03 0b 00000004")) << "cut off";
    begin();
    EXPECT_EQ("00", Control("03 0b 00000006 01 00 0000"));
    EXPECT_EQ("00", MemoryCode("01fb 06 000200 00020a030a02"));
    EXPECT_EQ("f8: what is to be loaded is not valid", Control("02")) << "an unsorted table";
    EXPECT_EQ(LoadFault::AddressesUnsorted, m_device.Loadable(StandardObject::AddressTable).Fault());
    begin();
    EXPECT_EQ("00", Control("03 0b 00000002 01 00 0000"));
    EXPECT_EQ("00", Control("02")) << "an empty table";
}

TEST_F(ReturnCodes, ThePlainServiceAnswersALoadEventWithTheState) {
    EXPECT_EQ("03d60105100103", Ask("03d7 01 05 1001 05")) << "error: there is no such event";
    EXPECT_EQ("03d60105100103", Ask("03d7 01 05 1001 01"));
    EXPECT_THAT(m_reasons, ElementsAre("there is no such load event or load control",
                                       "the load state does not allow the load event"));
    EXPECT_EQ("03d601050002", Ask("03d7 01 05 1002 01")) << "but there is one such property only";
}

TEST_F(ReturnCodes, OfMemoryThatIsWritten) {
    AllocateProgram();
    EXPECT_EQ("00", MemoryCode("01fb 02 00020e 0102"));
    EXPECT_EQ("fd: there is no memory at the address", MemoryCode("01fb 01 000210 01"));
    EXPECT_EQ("fd: there is no memory at the address", MemoryCode("01fb 02 0001ff 0102"));
    EXPECT_EQ("f1: the memory ends before the last octet", MemoryCode("01fb 02 00020f 0102"));
    EXPECT_EQ("f1: the memory ends before the last octet", MemoryCode("01fb 02 000060 0102"));
    EXPECT_EQ("00", MemoryCode("01fb 01 000060 01")) << "programming mode";
    EXPECT_EQ("ff: its length is wrong", MemoryCode("01fb 02 000200 01"));
    EXPECT_EQ("ff: its length is wrong", MemoryCode("01fb 01 000200 0102"));
    EXPECT_EQ("ff: its length is wrong", MemoryCode("01fb 00 000200"));
    EXPECT_EQ(": its length is wrong", MemoryCode("01fb 00 0002")) << "no address to answer with";
    EXPECT_EQ("f4: its length is wrong", MemoryCode("01fb fa 000200 01")) << "250 octets";
    Ask("03d7 04 05 1001 02000000000000000000");
    ASSERT_EQ(LoadState::Loaded, StateOf(StandardObject::Program1));
    EXPECT_EQ("f9: the memory is written only while its object is loading", MemoryCode("01fb 01 000200 09"));
    EXPECT_EQ("f1: the memory ends before the last octet", MemoryCode("01fb 02 00020f 0909"));
    LockEverything();
    EXPECT_EQ("fc: the access level does not allow it", MemoryCode("01fb 01 000200 09"));
    EXPECT_EQ("fc: the access level does not allow it", MemoryCode("01fb 01 000060 00"));
    EXPECT_EQ("01fe0000020e0102", Ask("01fd 02 00020e")) << "as it was";
}

TEST_F(ReturnCodes, OfMemoryThatIsRead) {
    Load(4, std::string(std::size_t{2} * 249, '1'));
    EXPECT_EQ("01fe00000200" + std::string(std::size_t{2} * 249, '1'), Ask("01fd f9 000200"))
        << "as much as an answer has room for";
    EXPECT_EQ("01fef4000200", Ask("01fd fa 000200"));
    EXPECT_EQ("01feff000200", Ask("01fd 00 000200")) << "nothing";
    EXPECT_EQ("01fef10002f8", Ask("01fd 02 0002f8"));
    EXPECT_EQ("01fef1000060", Ask("01fd 02 000060"));
    EXPECT_EQ("01fefd0002f9", Ask("01fd 01 0002f9"));
    EXPECT_THAT(m_reasons, IsEmpty());
}

} // namespace
} // namespace KnxDevice
