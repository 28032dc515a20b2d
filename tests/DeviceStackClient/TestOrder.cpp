// The order of what the client says while a connection lasts.
#include "ClientFixture.h"

#include <string>

class Order : public ConnectedClient {};

TEST_F(Order, WhatWaitedForRoomIsSentWithoutAnotherCall) {
    Register();
    const std::string longText(1000, 'x');
    for (int i = 0; i < 2000; ++i) // much more than the socket and one piece of the output hold
        m_client->SetValue(100, longText, true, false);
    for (int i = 0; i < 2000; ++i)
        m_connection.ReadRequest("setValue");
}
