// The example of docs/plugins.md does what it says.
#include "Vesk/IKnxAppPrgHandler.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

TEST(PluginGuide, ExampleBindsOneLight) {
    void* library = dlopen(ONE_LIGHT, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto create =
        reinterpret_cast<Vesk::IKnxAppPrgHandler* (*)(std::string&)>(dlsym(library, "CreateHandler"));
    const auto destroy =
        reinterpret_cast<bool (*)(Vesk::IKnxAppPrgHandler*&)>(dlsym(library, "DeleteHandler"));
    ASSERT_TRUE(create && destroy);
    std::string configFile;
    Vesk::IKnxAppPrgHandler* handler = create(configFile);
    ASSERT_TRUE(handler->Initialize());
    KNXDPT dpt;
    EXPECT_EQ(handler->GetIDFromCO(1, dpt), 2001u);
    EXPECT_EQ(dpt, (KNXDPT{1, 0, 1, 1}));
    EXPECT_EQ(handler->GetIDFromCO(2, dpt), 0u);
    EXPECT_EQ(handler->GetCOFromID(2001, true, dpt), 1);
    EXPECT_TRUE(handler->IsKnxEventDataPoint(2001));
    EXPECT_TRUE(destroy(handler));
    EXPECT_EQ(handler, nullptr);
    dlclose(library);
}
