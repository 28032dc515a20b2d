// 206 to 224: heating and cooling, versions, alarms.
#include "Convert.h"

#include <gtest/gtest.h>

using namespace ConverterTest;

// Temperatures are fiftieths: 21.5 °C is 1075, 0433h; 20 °C is 1000, 03E8h; 18 °C is 900, 0384h; 7 °C is 350,
// 015Eh; -0.02 is FFFFh. 80h of 207.600 is 128 * 100 / 255 = 50.2 %; 12345 of 218.002 is 1.2345 m³/h.
TEST(Hvac, HasTheFieldsInTelegramOrder) {
    ExpectBothWays({
        {"206.100", {0x00, 0x3C, 0x02}, R"({"delayTime":60,"mode":2})"},
        {"207.100", {0x64, 0x81}, R"({"value":100,"attributes":129})"},
        {"207.600", {0x80, 0x01}, R"({"actualValue":50.2,"attributes":1})"},
        {"209.100", {0x04, 0x33, 0x05}, R"({"temp":21.5,"attributes":5})"},
        {"210.100", {0xFF, 0xFF, 0x01, 0x00}, R"({"temp":-0.02,"attributes":256})"},
        {"211.100", {0x32, 0x01}, R"({"energyDem":50,"contrModeAct":1})"},
        {"212.100", {0x00, 0x32, 0xFF, 0xCE, 0x00, 0x00}, R"({"comfort":1,"standby":-1,"economy":0})"},
        {"212.101", {0x04, 0x33, 0x03, 0xE8, 0x03, 0x84}, R"({"comfort":21.5,"standby":20,"economy":18})"},
        {"213.100",
         {0x04, 0x33, 0x03, 0xE8, 0x03, 0x84, 0x01, 0x5E},
         R"({"comfort":21.5,"standby":20,"economy":18,"buildingProtection":7})"},
        {"213.101",
         {0x0B, 0xB8, 0x09, 0xC4, 0x07, 0xD0, 0x00, 0xFA},
         R"({"legioProtect":60,"normal":50,"reduced":40,"offFrostProtect":5})"},
        {"213.102",
         {0x00, 0x00, 0xFF, 0x9C, 0xFF, 0x38, 0x80, 0x01},
         R"({"comfort":0,"standby":-2,"economy":-4,"buildingProtection":-655.34})"},
        {"214.100", {0x04, 0x33, 0x64, 0x01}, R"({"temp":21.5,"relDemLimit":100,"attributes":1})"},
        {"215.101", {0x04, 0x33, 0x32, 0x80, 0x01}, R"({"temp":21.5,"relPower":50,"attributes":32769})"},
        {"216.100",
         {0x01, 0x2C, 0x64, 0x02, 0x01},
         R"({"pnom":300,"bStageLimit":100,"burnerType":2,"fuelType":1})"},
        {"218.001", {0x80, 0x00, 0x00, 0x00, 0x01}, R"({"value":-2147483648,"status":1})"},
        {"218.002", {0x00, 0x00, 0x30, 0x39, 0x00}, R"({"value":1.2345,"status":0})"},
        {"219.001",
         {0x01, 0x02, 0x0A, 0x03, 0x0F, 0x05},
         R"({"logNumber":1,"alarmPriority":2,"applicationArea":10,"errorClass":3,"attributes":15,"alarmStatusAttributes":5})"},
        {"220.100", {0x00, 0x0A, 0x04, 0x33}, R"({"delayTime":10,"temp":21.5})"},
        {"221.001",
         {0x00, 0x83, 0xFF, 0xFF, 0xFF, 0xFE},
         R"({"manufacturerCode":131,"incrementedNumber":4294967294})"},
        {"223.100", {0x9C, 0x03, 0x01}, R"({"energyDem":-100,"contrModeAct":3,"hvacEmergMode":1})"},
        {"224.100",
         {0x04, 0x33, 0x03, 0xE8, 0x03, 0x00},
         R"({"tempSetpCooling":21.5,"tempSetpHeating":20,"contrModeAct":3,"hvacEmergMode":0})"},
    });
}

// 5, 5 and 6 bits: 1 2 3 is 00001 00010 000011.
TEST(Version, HasThreeNumbersInTwoOctets) {
    ExpectBothWays({{"217.001", {0x08, 0x83}, R"({"magic":1,"version":2,"revision":3})"},
                    {"217.001", {0xFF, 0xFF}, R"({"magic":31,"version":31,"revision":63})"}});
}

// A 2-byte float as 9.001: 0C33h is 1075 * 2 hundredths.
TEST(FloatSetpoints, NullIsInvalidData) {
    ExpectBothWays(
        {{"222.100", {0x0C, 0x33, 0x7F, 0xFF, 0x00, 0x00}, R"({"comfort":21.5,"standby":null,"economy":0})"},
         {"222.101",
          {0x86, 0x9C, 0x00, 0x64, 0xF8, 0x00},
          R"({"comfort":-3.56,"standby":1,"economy":-671088.64})"}});
    EXPECT_EQ(ToBus("222.100", R"({"comfort":null,"standby":null})"), kRefused);
    EXPECT_EQ(ToBus("222.100", R"({"comfort":"","standby":1,"economy":1})"), kRefused);
    EXPECT_EQ(ToBus("222.100", R"({"comfort":670433.29,"standby":1,"economy":1})"), kRefused);
    EXPECT_EQ(ToBus("222.100", R"({"comfort":670433.28,"standby":1,"economy":1})"), "7ffe00640064");
    EXPECT_EQ(ToBus("213.100", R"({"comfort":null,"standby":1,"economy":1,"buildingProtection":1})"),
              kRefused);
}

// -273 °C is -13650, CAAEh; CAADh is below absolute zero, and a device may send it all the same.
TEST(Hvac, ShowsWhatIsBelowAbsoluteZeroButDoesNotSendIt) {
    ExpectBothWays({{"209.101", {0xCA, 0xAE, 0x00}, R"({"temp":-273,"attributes":0})"}});
    EXPECT_EQ(FromBus("209.101", {0xCA, 0xAD, 0x00}), R"({"temp":-273.02,"attributes":0})");
    EXPECT_EQ(ToBus("209.101", R"({"temp":-273.02,"attributes":0})"), kRefused);
    EXPECT_EQ(AsReceived("209.101", R"({"temp":-273.02,"attributes":0})"), "caad00");
    EXPECT_EQ(ToBus("209.xxx", R"({"temp":-273.02,"attributes":0})"), "caad00");
    EXPECT_EQ(WhyNotToBus("209.101", R"({"temp":-273.01,"attributes":0})"),
              "209.101: \"temp\": -273.01 is below -273");
}

TEST(Hvac, ShowsMoreThanAHundredPercentButDoesNotSendIt) {
    EXPECT_EQ(FromBus("207.101", {0xC8, 0x00}), R"({"value":200,"attributes":0})");
    EXPECT_EQ(ToBus("207.101", R"({"value":101,"attributes":0})"), kRefused);
    EXPECT_EQ(ToBus("211.100", R"({"energyDem":101,"contrModeAct":0})"), kRefused);
}
