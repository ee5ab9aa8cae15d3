// KESTREL_CONSOLE=1 from the host before the logger's entry turns the echo on
// until the settings say otherwise.
#include <stdlib.h>

#include "../../LogTestSupport.h"

using namespace kestrel::test;

namespace {

class LogConsoleEnvTest : public LogTest {
  protected:
    void SetUp() override {
        setenv("KESTREL_CONSOLE", "1", 1);
        LogTest::SetUp();
    }
    void TearDown() override {
        LogTest::TearDown();
        unsetenv("KESTREL_CONSOLE");
    }
};

TEST_F(LogConsoleEnvTest, HostTurnsTheEchoOnAndTheSettingsCanOverrule) {
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "early line");
    ASSERT_EQ(ConsoleLines().size(), 1u) << "echoed before any settings were read";
    EXPECT_NE(ConsoleLines()[0].find("INFO  early line"), std::string::npos);
    Configure("Logger.0.Backend.0.ClassId=0\n");
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "still echoed");
    EXPECT_EQ(ConsoleLines().size(), 2u) << "no Console key: the host's word stands";
    Configure("Console=0\nLogger.0.Backend.0.ClassId=0\n");
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "silenced");
    EXPECT_EQ(ConsoleLines().size(), 2u);
}

} // namespace
