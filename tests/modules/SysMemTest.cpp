// Tests of SysMem: accounting per component, bad frees, the leak report at
// the final shut-down hook and the fault-injection setting.
#include <cstdint>
#include <cstring>
#include <map>
#include <string>

#include "ModuleTestSupport.h"
#include "SysMemItf.h"

using kestrel::test::EnterModule;
using kestrel::test::FakeCM;
using kestrel::test::LogRecorder;

namespace {

// Settings served to SysMem by the test.
std::map<std::string, RTS_I32> g_ints;
std::map<std::string, std::string> g_strings;

RTS_RESULT FakeGetInt(const char *section, const char *key, RTS_I32 *value, RTS_I32 def) {
    auto it = g_ints.find(std::string(section) + "." + key);
    *value = it == g_ints.end() ? def : it->second;
    return it == g_ints.end() ? ERR_NO_OBJECT : ERR_OK;
}

RTS_RESULT FakeGetString(const char *section, const char *key, char *value, RTS_I32 *len, const char *def) {
    auto it = g_strings.find(std::string(section) + "." + key);
    std::string v = it == g_strings.end() ? def : it->second;
    std::snprintf(value, static_cast<std::size_t>(*len), "%s", v.c_str());
    return it == g_strings.end() ? ERR_NO_OBJECT : ERR_OK;
}

class SysMemTest : public ::testing::Test {
  protected:
    void SetUp() override {
        g_ints.clear();
        g_strings.clear();
        LogRecorder::Clear();
        cm_.Provide("LogAdd", &LogRecorder::LogAdd);
        cm_.Provide("SettgGetIntValue", &FakeGetInt);
        cm_.Provide("SettgGetStringValue", &FakeGetString);
        EnterModule(cm_, SysMemEntry, CMPID_SysMem);
        cm_.Hook(CH_INIT_SYSTEM); // reads the (empty) settings: no fault injection
    }
    static RTS_SIZE Bytes(const char *name) {
        RTS_SIZE bytes = 0, blocks = 0;
        return SysMemGetAccount(name, &bytes, &blocks) == ERR_OK ? bytes : static_cast<RTS_SIZE>(-1);
    }
    static RTS_SIZE Blocks(const char *name) {
        RTS_SIZE bytes = 0, blocks = 0;
        return SysMemGetAccount(name, &bytes, &blocks) == ERR_OK ? blocks : static_cast<RTS_SIZE>(-1);
    }
    FakeCM cm_;
};

TEST_F(SysMemTest, AccountsPerComponent) {
    RTS_RESULT r = ERR_FAILED;
    void *a = SysMemAllocData("AcctA", 100, &r);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(r, ERR_OK);
    void *b = SysMemAllocData("AcctA", 28, nullptr);
    void *c = SysMemAllocData("AcctB", 7, nullptr);
    ASSERT_NE(b, nullptr);
    ASSERT_NE(c, nullptr);
    std::memset(a, 0x5A, 100); // the whole block is usable
    EXPECT_EQ(Bytes("AcctA"), 128u);
    EXPECT_EQ(Blocks("AcctA"), 2u);
    EXPECT_EQ(Bytes("AcctB"), 7u);
    EXPECT_EQ(SysMemFreeData("AcctA", a), ERR_OK);
    EXPECT_EQ(Bytes("AcctA"), 28u);
    // A block goes back to the account that paid for it, whatever name comes with it.
    EXPECT_EQ(SysMemFreeData("SomebodyElse", c), ERR_OK);
    EXPECT_EQ(Bytes("AcctB"), 0u);
    EXPECT_EQ(SysMemFreeData("AcctA", b), ERR_OK);
    EXPECT_EQ(Blocks("AcctA"), 0u);
    EXPECT_EQ(SysMemGetAccount("NeverSeen", nullptr, nullptr), ERR_NO_OBJECT);
}

TEST_F(SysMemTest, BlocksAreAlignedForAnyType) {
    for (RTS_SIZE size : {1u, 3u, 8u, 13u, 64u, 1000u}) {
        void *p = SysMemAllocData("Align", size, nullptr);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % alignof(std::max_align_t), 0u) << size;
        SysMemFreeData("Align", p);
    }
}

TEST_F(SysMemTest, BadFreesAreRefused) {
    EXPECT_EQ(SysMemFreeData("Bad", nullptr), ERR_PARAMETER);
    void *p = SysMemAllocData("Bad", 16, nullptr);
    ASSERT_EQ(SysMemFreeData("Bad", p), ERR_OK);
    EXPECT_EQ(Blocks("Bad"), 0u);
}

TEST_F(SysMemTest, NamelessAndHugeRequests) {
    void *p = SysMemAllocData(nullptr, 4, nullptr);
    ASSERT_NE(p, nullptr) << "a missing name is accounted under \"?\"";
    EXPECT_EQ(Blocks("?"), 1u);
    SysMemFreeData(nullptr, p);
    RTS_RESULT r = ERR_OK;
    EXPECT_EQ(SysMemAllocData("Huge", static_cast<RTS_SIZE>(-1), &r), nullptr);
    EXPECT_EQ(r, ERR_NOMEMORY);
}

TEST_F(SysMemTest, FinalHookReportsOneLinePerLeakingComponent) {
    void *a1 = SysMemAllocData("LeakA", 10, nullptr);
    void *a2 = SysMemAllocData("LeakA", 20, nullptr);
    void *b = SysMemAllocData("LeakB", 5, nullptr);
    void *ok = SysMemAllocData("Tidy", 5, nullptr);
    SysMemFreeData("Tidy", ok);
    LogRecorder::Clear();
    EXPECT_EQ(cm_.Hook(CH_EXIT), ERR_OK);
    EXPECT_TRUE(LogRecorder::Containing("Memory leak").empty()) << "the report waits for the final hook";
    EXPECT_EQ(cm_.Hook(CH_EXIT_FINAL), ERR_OK);
    auto a = LogRecorder::Containing("<cmp>LeakA</cmp>");
    ASSERT_EQ(a.size(), 1u);
    EXPECT_NE(a[0].text.find("30 bytes in 2 blocks"), std::string::npos) << a[0].text;
    EXPECT_EQ(a[0].classId, LOG_ERROR);
    EXPECT_EQ(a[0].cmpId, CMPID_SysMem);
    EXPECT_EQ(LogRecorder::Containing("<cmp>LeakB</cmp>").size(), 1u);
    EXPECT_TRUE(LogRecorder::Containing("<cmp>Tidy</cmp>").empty());
    SysMemFreeData("LeakA", a1);
    SysMemFreeData("LeakA", a2);
    SysMemFreeData("LeakB", b);
    LogRecorder::Clear();
    cm_.Hook(CH_EXIT_FINAL);
    EXPECT_TRUE(LogRecorder::Containing("LeakA").empty());
}

TEST_F(SysMemTest, FailAllocationMakesTheNthAllocationFail) {
    g_ints["SysMem.FailAllocation"] = 3;
    cm_.Hook(CH_INIT_SYSTEM);
    void *p1 = SysMemAllocData("Inject", 8, nullptr);
    void *p2 = SysMemAllocData("Inject", 8, nullptr);
    RTS_RESULT r = ERR_OK;
    void *p3 = SysMemAllocData("Inject", 8, &r);
    void *p4 = SysMemAllocData("Inject", 8, nullptr);
    EXPECT_NE(p1, nullptr);
    EXPECT_NE(p2, nullptr);
    EXPECT_EQ(p3, nullptr);
    EXPECT_EQ(r, ERR_NOMEMORY);
    EXPECT_NE(p4, nullptr) << "only the Nth fails";
    EXPECT_EQ(LogRecorder::Containing("Injected allocation failure").size(), 1u);
    EXPECT_EQ(Blocks("Inject"), 3u);
    for (void *p : {p1, p2, p4})
        SysMemFreeData("Inject", p);
}

TEST_F(SysMemTest, FailAllocationCanBeLimitedToOneComponent) {
    g_ints["SysMem.FailAllocation"] = 2;
    g_strings["SysMem.FailAllocationComponent"] = "Victim";
    cm_.Hook(CH_INIT_SYSTEM);
    void *o1 = SysMemAllocData("Bystander", 8, nullptr);
    void *v1 = SysMemAllocData("Victim", 8, nullptr);
    void *o2 = SysMemAllocData("Bystander", 8, nullptr);
    void *v2 = SysMemAllocData("Victim", 8, nullptr);
    EXPECT_NE(o1, nullptr);
    EXPECT_NE(v1, nullptr);
    EXPECT_NE(o2, nullptr);
    EXPECT_EQ(v2, nullptr);
    for (void *p : {o1, v1, o2})
        SysMemFreeData("x", p);
}

TEST_F(SysMemTest, NegativeFailAllocationIsReportedAndIgnored) {
    g_ints["SysMem.FailAllocation"] = -4;
    cm_.Hook(CH_INIT_SYSTEM);
    EXPECT_EQ(LogRecorder::Containing("FailAllocation=-4").size(), 1u);
    for (int i = 0; i < 10; ++i) {
        void *p = SysMemAllocData("Neg", 8, nullptr);
        ASSERT_NE(p, nullptr);
        SysMemFreeData("Neg", p);
    }
}

TEST_F(SysMemTest, LeavingLoggerIsNoLongerCalled) {
    void *p = SysMemAllocData("Orphan", 8, nullptr);
    std::string name = "CmpLog";
    cm_.Hook(CH_COMPONENT_EXIT, reinterpret_cast<RTS_UINTPTR>(name.c_str()));
    LogRecorder::Clear();
    cm_.Hook(CH_EXIT_FINAL);
    EXPECT_TRUE(LogRecorder::Lines().empty());
    SysMemFreeData("Orphan", p);
}

} // namespace
