// What hosts and plug-ins that were built elsewhere rely on in the binary: bases, virtual tables, slots.
#include "ProgramTest.h"

#include "KnxStack/IInterfaceObject.h"
#include "KnxStack/IInterfaceObjectProperty.h"
#include "KnxStack/IPropertyService.h"
#include "Vesk/IKnxAppPrgHandler.h"
#include "Vesk/IKnxDownloadHandler.h"

#include <cxxabi.h>
#include <dlfcn.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <typeinfo>

namespace {

using testing::ElementsAre;

std::string Demangled(const char* name) {
    int status = 0;
    char* const text = abi::__cxa_demangle(name, nullptr, nullptr, &status);
    std::string result(text != nullptr ? text : name);
    std::free(text);
    return result;
}

/// The function in a slot of the object's virtual table, by the name that its library exports, without
/// parameters.
std::string FunctionInSlot(const void* object, unsigned slot) {
    void* const function = (*static_cast<void* const* const*>(object))[slot];
    Dl_info symbol{};
    if (dladdr(function, &symbol) == 0 || symbol.dli_saddr != function)
        return "not exported";
    const std::string name = Demangled(symbol.dli_sname);
    return name.substr(0, name.find('('));
}

/// The slot that a call of the operation looks into; the destructor's two come first.
template <typename Result, typename Class, typename... Arguments>
std::size_t SlotOf(Result (Class::*operation)(Arguments...)) {
    std::uintptr_t word = 0;
    std::memcpy(&word, &operation, sizeof word);
    return word / sizeof(void*); // on some machines the lowest bit says that the operation is virtual
}

template <typename Result, typename Class>
std::size_t SlotOf(Result (Class::*operation)() const) {
    return SlotOf(reinterpret_cast<Result (Class::*)()>(operation));
}

using ShapeTest = ProgramTest;

TEST_F(ShapeTest, Program_HasItsBasesInOrderAndShowsOnlyTheFirst) {
    Create();
    const auto* const type = dynamic_cast<const abi::__vmi_class_type_info*>(&typeid(*program));
    ASSERT_NE(type, nullptr);
    std::vector<std::string> bases;
    for (unsigned i = 0; i != type->__base_count; ++i) {
        const abi::__base_class_type_info& base = type->__base_info[i];
        bases.push_back((base.__is_public_p() ? "public " : "private ") +
                        Demangled(base.__base_type->name()) + " at " +
                        std::to_string(base.__offset() / static_cast<long>(sizeof(void*))));
    }
    EXPECT_THAT(bases, ElementsAre("public KnxStack::IApplicationProgram at 0",
                                   "private Vesk::IDeviceStackClient::IEventHandler at 1",
                                   "private Vesk::IDeviceStackClient::IResponseHandler at 2",
                                   "private Vesk::IDeviceStackClient::IFieldHandlerWithUrn at 3"));
}

TEST_F(ShapeTest, Program_HasItsOperationsInTheOrderOfTheirSlots) {
    Create();
    EXPECT_EQ(FunctionInSlot(program, 0), "DscKnxAppPrg::~DscKnxAppPrg"); // without and with deletion
    EXPECT_EQ(FunctionInSlot(program, 1), "DscKnxAppPrg::~DscKnxAppPrg");
    EXPECT_EQ(FunctionInSlot(program, 2), "DscKnxAppPrg::Init");
    EXPECT_EQ(FunctionInSlot(program, 3), "DscKnxAppPrg::OnDeviceRestart");
    EXPECT_EQ(FunctionInSlot(program, 4), "DscKnxAppPrg::Exit");
    EXPECT_EQ(FunctionInSlot(program, 5), "DscKnxAppPrg::OnValueChanged");
    EXPECT_EQ(FunctionInSlot(program, 6), "DscKnxAppPrg::OnConfigurationChanged");
    EXPECT_EQ(FunctionInSlot(program, 7), "DscKnxAppPrg::OnDeviceDiscovery");
    // The callbacks that do nothing, 8, 10 to 13 and 15, may share one body and so one name.
    EXPECT_EQ(FunctionInSlot(program, 9), "DscKnxAppPrg::OnApplicationEvent");
    EXPECT_EQ(FunctionInSlot(program, 14), "DscKnxAppPrg::OnGetValue");
    EXPECT_EQ(FunctionInSlot(program, 16), "DscKnxAppPrg::OnReadValue");
    EXPECT_EQ(FunctionInSlot(program, 17), "DscKnxAppPrg::OnWriteValue");
}

TEST_F(ShapeTest, GroupValueUser_HasItsOperationsInTheOrderOfTheirSlots) {
    CreateAndInit();
    const KnxStack::IGroupValueUser* const user = service.User();
    ASSERT_NE(user, nullptr);
    EXPECT_EQ(Demangled(typeid(*user).name()), "DscKnxAppPrg::KnxHandler");
    EXPECT_EQ(FunctionInSlot(user, 2), "DscKnxAppPrg::KnxHandler::OnGroupValueWrite");
    EXPECT_EQ(FunctionInSlot(user, 3), "DscKnxAppPrg::KnxHandler::OnGroupValueResponse");
    EXPECT_EQ(FunctionInSlot(user, 4), "DscKnxAppPrg::KnxHandler::OnGroupValueRead");
}

TEST(InterfaceShapeTest, HandlerPlugin_HasItsOperationsInTheOrderOfTheirSlots) {
    using Handler = Vesk::IKnxAppPrgHandler;
    EXPECT_EQ(SlotOf(&Handler::Initialize), 2u);
    EXPECT_EQ(SlotOf(&Handler::GetIDFromCO), 3u);
    EXPECT_EQ(SlotOf(&Handler::GetUrnFromCO), 4u);
    EXPECT_EQ(SlotOf(&Handler::GetCOFromID), 5u);
    EXPECT_EQ(SlotOf(&Handler::GetCOFromUrn), 6u);
    EXPECT_EQ((SlotOf<bool, Handler, std::uint32_t>(&Handler::IsKnxEventDataPoint)), 7u);
    EXPECT_EQ((SlotOf<bool, Handler, const std::string&>(&Handler::IsKnxEventDataPoint)), 8u);
    EXPECT_EQ((SlotOf<bool, Handler, std::uint32_t>(&Handler::IsOxnReadInternalDataPoint)), 9u);
    EXPECT_EQ((SlotOf<bool, Handler, const std::string&>(&Handler::IsOxnReadInternalDataPoint)), 10u);
    EXPECT_EQ(SlotOf(&Handler::GetTimeCoByIndex), 11u);
    EXPECT_EQ(SlotOf(&Handler::GetInterfaceObjectId), 12u);
    EXPECT_EQ(SlotOf(&Handler::GetPropertyByIndex), 13u);
    EXPECT_EQ(SlotOf(&Handler::GetExtendedInterfaceObjectType), 14u);
    EXPECT_EQ(SlotOf(&Handler::GetExtendedProperties), 15u);
    EXPECT_EQ(SlotOf(&Handler::GetGroupAddressTranslationRange), 16u);
    EXPECT_EQ(SlotOf(&Handler::GetUseUrns), 17u);
    EXPECT_EQ(SlotOf(&Handler::Reload), 18u);
}

TEST(InterfaceShapeTest, DownloadPlugin_HasItsOperationsInTheOrderOfTheirSlots) {
    EXPECT_EQ(SlotOf(&Vesk::IKnxDownloadHandler::Initialize), 2u);
    EXPECT_EQ(SlotOf(&Vesk::IKnxDownloadHandler::CreateFileWithKnxData), 3u);
}

TEST(InterfaceShapeTest, DownloadedData_FitAMachineWord) {
    EXPECT_LE(sizeof(Vesk::IKnxDownloadHandler::AppData), sizeof(void*));
    EXPECT_TRUE(std::is_trivially_copyable_v<Vesk::IKnxDownloadHandler::AppData>);
}

TEST(InterfaceShapeTest, InterfaceObjects_HaveTheirOperationsInTheOrderOfTheirSlots) {
    EXPECT_EQ(SlotOf(&KnxStack::IPropertyService::CreateInterfaceObject), 2u);
    EXPECT_EQ(SlotOf(&KnxStack::IPropertyService::GetInterfaceObjectById), 3u);
    EXPECT_EQ(SlotOf(&KnxStack::IPropertyService::GetInterfaceObject), 4u);
    EXPECT_EQ(SlotOf(&KnxStack::IInterfaceObject::CreateProperty), 2u);
    EXPECT_EQ(SlotOf(&KnxStack::IInterfaceObject::CreateArrayProperty), 3u);
    EXPECT_EQ(SlotOf(&KnxStack::IInterfaceObject::GetProperty), 4u);
    EXPECT_EQ(SlotOf(&KnxStack::IInterfaceObjectProperty::SetActive), 2u);
    EXPECT_EQ(SlotOf(&KnxStack::IInterfaceObjectProperty::GetValue), 3u);
    EXPECT_EQ(SlotOf(&KnxStack::IInterfaceObjectProperty::SetValue), 4u);
}

TEST(InterfaceShapeTest, StartupStates_AreNumbersOfTheInterface) {
    using State = KnxStack::IApplicationProgram::StartupState;
    EXPECT_EQ(static_cast<std::uint32_t>(State::Failed), 0u);
    EXPECT_EQ(static_cast<std::uint32_t>(State::Running), 1u);
    EXPECT_EQ(static_cast<std::uint32_t>(State::InProgress), 2u);
    EXPECT_EQ(sizeof(State), 4u);
}

} // namespace
