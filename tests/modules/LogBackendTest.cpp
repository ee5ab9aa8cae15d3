// Tests of CmpLog's backends: instances of a backend class reached through
// interface 22, replay of earlier entries, handles that change on rotation,
// unregistering, and the failures that must give one clear line each.
#include "LogTestSupport.h"

using kestrel::test::Backend;
using kestrel::test::LogTest;
using kestrel::test::RingTexts;

namespace {

TEST_F(LogTest, FileBackendClassIsTheDefault) {
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "before the backend");
    Configure("Logger.0.Name=PlcLog\nLogger.0.MaxFiles=7\n");
    EXPECT_EQ(Backend().opens, 1);
    EXPECT_EQ(Backend().openedName, "PlcLog");
    EXPECT_EQ(Backend().openedMaxFiles, 7);
    // Entries logged before the backend existed were replayed into it.
    bool replayed = false;
    for (const std::string &t : Backend().texts)
        replayed = replayed || t == "before the backend";
    EXPECT_TRUE(replayed);
    std::size_t n = Backend().texts.size();
    for (int i = 0; i < 7; ++i)
        LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "to the file %d", i);
    ASSERT_EQ(Backend().texts.size(), n + 7);
    EXPECT_EQ(Backend().texts.back(), "to the file 6");
    EXPECT_FALSE(Backend().wrongHandleSeen) << "each write used the handle the previous one returned";
    EXPECT_EQ(Backend().references, 1) << "one reference from the interface query";
}

TEST_F(LogTest, UnregisterClosesAndGivesTheInstanceBack) {
    Configure("Logger.0.Backend.0.ClassId=260\n");
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "written");
    EXPECT_EQ(LogUnregisterBackend(RTS_INVALID_HANDLE, 260), ERR_OK);
    EXPECT_EQ(Backend().closes, 1);
    EXPECT_FALSE(Backend().wrongHandleSeen) << "closed with its current handle";
    EXPECT_EQ(Backend().references, 0);
    EXPECT_EQ(Backend().deletes, 1);
    std::size_t n = Backend().texts.size();
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "after unregister");
    EXPECT_EQ(Backend().texts.size(), n);
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "after unregister").size(), 1u) << "the ring goes on";
    EXPECT_EQ(LogUnregisterBackend(RTS_INVALID_HANDLE, 260), ERR_NO_OBJECT);
    EXPECT_EQ(LogUnregisterBackend(LOG_STD_LOGGER, 260), ERR_NO_OBJECT);
}

TEST_F(LogTest, ExitHookClosesWhatIsLeft) {
    Configure("Logger.0.Backend.0.ClassId=260\nLogger.1.Name=Second\nLogger.1.Backend.0.ClassId=260\n");
    EXPECT_EQ(Backend().opens, 2);
    cm_.Hook(CH_EXIT2);
    EXPECT_EQ(Backend().closes, 2);
    EXPECT_EQ(Backend().deletes, 2);
    EXPECT_EQ(Backend().references, 0);
}

TEST_F(LogTest, UnknownBackendClassGivesAClearLine) {
    Configure("Logger.0.Backend.0.ClassId=999\n");
    auto lines = RingTexts(LOG_STD_LOGGER, "no backend of class 999");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("<name>PlcLog</name>"), std::string::npos);
    EXPECT_EQ(Backend().opens, 0);
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "still logging");
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "still logging").size(), 1u);
}

TEST_F(LogTest, ClassWithoutLogInterfaceGivesAClearLine) {
    Configure("Logger.0.Backend.0.ClassId=261\nLogger.0.Backend.1.ClassId=260\n");
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "class 261 is no log backend").size(), 1u);
    EXPECT_EQ(Backend().opens, 1) << "the next backend is still attached";
}

TEST_F(LogTest, BackendThatCannotOpenIsGivenBack) {
    Backend().failOpen = true;
    Configure("Logger.0.Backend.0.ClassId=260\n");
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "backend of class 260 could not open").size(), 1u);
    EXPECT_EQ(Backend().references, 0);
    EXPECT_EQ(Backend().deletes, 1);
    std::size_t n = Backend().texts.size();
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "not written");
    EXPECT_EQ(Backend().texts.size(), n);
}

TEST_F(LogTest, BackendLoggingWhileWritingDoesNotRecurse) {
    Configure("Logger.0.Backend.0.ClassId=260\n");
    Backend().logWhileWriting = true;
    std::size_t n = Backend().texts.size();
    LogAdd(LOG_STD_LOGGER, 1, LOG_ERROR, 0, 0, "outer entry");
    ASSERT_EQ(Backend().texts.size(), n + 1);
    EXPECT_EQ(Backend().texts.back(), "outer entry");
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "backend trouble while writing").size(), 1u) << "kept in the ring";
    Backend().logWhileWriting = false;
}

} // namespace
