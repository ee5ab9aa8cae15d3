// Tests of SysMem: accounting per component, bad frees, the leak report at
// the final shut-down hook and the fault-injection settings (read through
// the real settings component).
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "CmpSettingsItf.h"
#include "ModuleTestSupport.h"
#include "SysMemItf.h"

using namespace kestrel::test;

namespace {

using Account = std::pair<RTS_SIZE, RTS_SIZE>; // bytes, blocks

class SysMemTest : public ModuleTest<SysMemEntry, CMPID_SysMem> {
  protected:
    void Provide() override {
        cm_.Provide("SettgGetIntValue", &SettgGetIntValue);
        cm_.Provide("SettgGetStringValue", &SettgGetStringValue);
    }
    void SetUp() override {
        ModuleTest::SetUp();
        Configure(""); // no fault injection
    }
    // Writes the [SysMem] section and lets SysMem read it.
    void Configure(const std::string &section) {
        std::string path = dir_.Write("mem.cfg", "[SysMem]\n" + section);
        ASSERT_EQ(SettgSetDatabaseName(path.c_str()), ERR_OK);
        cm_.Hook(CH_INIT_SYSTEM);
    }
    // The account of a component; both -1 when it has none.
    static Account Held(const char *name) {
        RTS_SIZE bytes = 0, blocks = 0;
        if (SysMemGetAccount(name, &bytes, &blocks) != ERR_OK)
            return {static_cast<RTS_SIZE>(-1), static_cast<RTS_SIZE>(-1)};
        return {bytes, blocks};
    }
    TempDir dir_;
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
    EXPECT_EQ(Held("AcctA"), Account(128, 2));
    EXPECT_EQ(Held("AcctB"), Account(7, 1));
    EXPECT_EQ(SysMemFreeData("AcctA", a), ERR_OK);
    EXPECT_EQ(Held("AcctA"), Account(28, 1));
    // A block goes back to the account that paid for it, whatever name comes with it.
    EXPECT_EQ(SysMemFreeData("SomebodyElse", c), ERR_OK);
    EXPECT_EQ(Held("AcctB"), Account(0, 0));
    EXPECT_EQ(SysMemFreeData("AcctA", b), ERR_OK);
    EXPECT_EQ(Held("AcctA"), Account(0, 0));
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

TEST_F(SysMemTest, NullNamelessAndHugeRequests) {
    EXPECT_EQ(SysMemFreeData("Bad", nullptr), ERR_PARAMETER);
    void *p = SysMemAllocData(nullptr, 4, nullptr);
    ASSERT_NE(p, nullptr) << "a missing name is accounted under \"?\"";
    EXPECT_EQ(Held("?").second, 1u);
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
    constexpr std::size_t kNone = 99;
    struct Row {
        RTS_I32 n;                         // SysMem.FailAllocation
        const char *component;             // SysMem.FailAllocationComponent
        std::vector<const char *> callers; // one allocation each
        std::size_t failing;               // the one that fails, kNone: none
        RTS_SIZE lastHolds;                // blocks the last caller holds afterwards
        const char *logged;                // a line the log must hold once
    };
    const Row rows[] = {
        {3, "", {"Inject", "Inject", "Inject", "Inject"}, 2, 3, "Injected allocation failure"},
        {2, "Victim", {"Bystander", "Victim", "Bystander", "Victim"}, 3, 1, "Injected allocation failure"},
        {-4, "", std::vector<const char *>(10, "Neg"), kNone, 10, "FailAllocation=-4"}, // reported, ignored
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.n);
        LogRecorder::Clear();
        Configure("FailAllocation=" + std::to_string(row.n) + "\nFailAllocationComponent=" + row.component + "\n");
        std::vector<void *> held;
        for (std::size_t i = 0; i < row.callers.size(); ++i) {
            RTS_RESULT r = ERR_FAILED;
            void *p = SysMemAllocData(row.callers[i], 8, &r);
            EXPECT_EQ(p == nullptr, i == row.failing) << i;
            EXPECT_EQ(r, i == row.failing ? ERR_NOMEMORY : ERR_OK) << i;
            if (p != nullptr)
                held.push_back(p);
        }
        EXPECT_EQ(LogRecorder::Containing(row.logged).size(), 1u);
        EXPECT_EQ(Held(row.callers.back()).second, row.lastHolds);
        for (void *p : held)
            SysMemFreeData("x", p);
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
