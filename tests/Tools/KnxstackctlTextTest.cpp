#include "Tools/knxstackctl/Output.h"

#include <gmock/gmock.h>

#include <cstdlib>

using namespace KnxStackCtl;
using testing::ElementsAre;

namespace {

boost::json::object Json(const char* text) {
    return boost::json::parse(text).get_object();
}

} // namespace

TEST(KnxstackctlText, StatusIsOneLineEach) {
    EXPECT_THAT(StatusLines(Json(R"({"address":"1.1.250","name":"House","serialNumber":"00fa01020304",
                    "programmingMode":true,"loadStates":{"group address table":"loaded","application program":"error"},
                    "restartPending":false,"groupObjects":62,"program":"running",
                    "programTelegrams":{"delivered":9,"replaced":3,"dropped":0,"waiting":2,"mostWaiting":7},
                    "image":"","uptime":93784})")),
                ElementsAre("device               1.1.250 \"House\"", "serial number        00fa01020304",
                            "programming mode     on", "program              running",
                            "telegrams for it     9 delivered, 3 replaced, 2 waiting, at most 7",
                            "restart pending      no", "group objects        62",
                            "group address table  loaded", "application program  error",
                            "image                none", "uptime               1 d 02:03:04"));
}

TEST(KnxstackctlText, LinksAreATableEach) {
    EXPECT_THAT(
        LinksLines(Json(R"({"server":{"endpoint":"0.0.0.0:3671","tcp":true,"tunnels":[
                {"address":"1.1.251","client":"10.0.0.9:4000 over TCP","fromClient":3,"toClient":12,"repeated":1,
                 "duplicates":2,"outOfOrder":0,"dropped":4,"mostWaiting":25},
                {"address":"1.1.252","client":"","fromClient":0,"toClient":0,"repeated":0,"duplicates":0,
                 "outOfOrder":0,"dropped":0,"mostWaiting":0}]},
            "interface":{"name":"gateway:3671","connected":true,"address":"1.1.17","waiting":7,"sent":1,"received":2,
                         "repeated":3,"dropped":4,"noAck":5,"noConfirmation":6,"negativeConfirm":8,"connections":9},
            "routing":null,"bus":{"unknownAddress":10,"refusedByFlags":11,"unusable":12}})")),
        ElementsAre(
            "Server 0.0.0.0:3671, UDP and TCP",
            "  TUNNEL   CLIENT                  FROM CLIENT  TO CLIENT  REPEATED  DUPLICATES  OUT OF ORDER  "
            "LOST  MOST WAITING",
            "  1.1.251  10.0.0.9:4000 over TCP  3            12         1         2           0             "
            "4     25",
            "  1.1.252  -                       0            0          0         0           0             "
            "0     0",
            "Interface gateway:3671, connected as 1.1.17",
            "  SENT  RECEIVED  WAITING  REPEATED  LOST  NO ACK  NO CONFIRMATION  REFUSED BY BUS  CONNECTIONS",
            "  1     2         7        3         4     5       6                8               9",
            "Telegrams without a group object 10, refused by flags 11, unusable 12"));
    EXPECT_THAT(LinksLines(Json(R"({"server":null,"interface":{"name":"gateway:3671","connected":false}})")),
                ElementsAre("Interface gateway:3671, not connected", testing::_, testing::_));
    EXPECT_THAT(LinksLines(Json(R"({"server":{"endpoint":"10.0.0.1:3671","fault":"no such address",
                    "group":"224.0.23.12:3671","groupFault":"no way","tunnels":[]},
                    "interface":{"name":"gateway:3671","connected":false,"fault":"no answer"},
                    "routing":{"group":"224.0.23.13:3671","fault":"nobody there"}})")),
                ElementsAre("Server 10.0.0.1:3671, UDP: no such address",
                            "  answers searches in 224.0.23.12:3671: no way", testing::_,
                            "Interface gateway:3671, not connected: no answer", testing::_, testing::_,
                            "Routing 224.0.23.13:3671: nobody there", testing::_, testing::_));
    EXPECT_THAT(
        LinksLines(Json(R"({"routing":{"group":"224.0.23.12:3671","sent":1,"received":2,"waiting":3,
                    "dropped":4,"busy":5,"lost":6,"pauses":7,"lostHere":8}})")),
        ElementsAre("Routing 224.0.23.12:3671",
                    "  SENT  RECEIVED  WAITING  LOST  BUSY  LOST BY OTHERS  PAUSES ASKED  LOST BY CLIENTS",
                    "  1     2         3        4     5     6               7             8"));
}

TEST(KnxstackctlText, ATelegramHasItsLocalTimeInFront) {
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ::tzset();
    EXPECT_EQ(
        "2024-05-01 12:00:00.123  1.1.4 -> 1/2/3  GroupValue_Read",
        MonitorText(Json(R"({"time":"2024-05-01T10:00:00.123Z","line":"1.1.4 -> 1/2/3  GroupValue_Read"})")));
}

TEST(KnxstackctlText, ADurationHasDaysWhenThereAreSome) {
    EXPECT_EQ("00:00:00", Duration(0));
    EXPECT_EQ("23:59:59", Duration(86399));
    EXPECT_EQ("365 d 00:00:01", Duration(31536001));
}
