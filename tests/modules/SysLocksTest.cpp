// Tests of the lock modules: SysSem (recursive semaphores) and SysInt (the
// process-wide interrupt lock), including their use from several threads.
#include <atomic>
#include <thread>
#include <vector>

#include "ModuleTestSupport.h"
#include "SysIntItf.h"
#include "SysSemItf.h"

using kestrel::test::EnterModule;
using kestrel::test::FakeCM;

namespace {

class SysSemTest : public ::testing::Test {
  protected:
    void SetUp() override { EnterModule(cm_, SysSemEntry, CMPID_SysSem); }
    FakeCM cm_;
};

TEST_F(SysSemTest, CreateEnterLeaveDelete) {
    RTS_RESULT r = ERR_FAILED;
    RTS_HANDLE h = SysSemCreate(&r);
    ASSERT_EQ(r, ERR_OK);
    ASSERT_NE(h, RTS_INVALID_HANDLE);
    EXPECT_EQ(SysSemEnter(h), ERR_OK);
    EXPECT_EQ(SysSemLeave(h), ERR_OK);
    EXPECT_EQ(SysSemDelete(h), ERR_OK);
    RTS_HANDLE noResult = SysSemCreate(nullptr);
    EXPECT_NE(noResult, RTS_INVALID_HANDLE) << "the result pointer is optional";
    EXPECT_EQ(SysSemDelete(noResult), ERR_OK);
}

TEST_F(SysSemTest, InvalidHandlesAreRefused) {
    for (RTS_HANDLE h : {static_cast<RTS_HANDLE>(nullptr), RTS_INVALID_HANDLE}) {
        EXPECT_EQ(SysSemEnter(h), ERR_PARAMETER);
        EXPECT_EQ(SysSemLeave(h), ERR_PARAMETER);
        EXPECT_EQ(SysSemDelete(h), ERR_PARAMETER);
    }
    // Something that is not a semaphore at all.
    alignas(16) unsigned char junk[64] = {};
    EXPECT_EQ(SysSemEnter(junk), ERR_PARAMETER);
}

TEST_F(SysSemTest, IsRecursiveAndOnlyTheOwnerLeaves) {
    RTS_HANDLE h = SysSemCreate(nullptr);
    ASSERT_EQ(SysSemEnter(h), ERR_OK);
    ASSERT_EQ(SysSemEnter(h), ERR_OK);
    ASSERT_EQ(SysSemEnter(h), ERR_OK);
    RTS_RESULT other = ERR_OK;
    std::thread([&] { other = SysSemLeave(h); }).join();
    EXPECT_EQ(other, ERR_FAILED) << "a thread that does not hold the lock cannot leave it";
    EXPECT_EQ(SysSemLeave(h), ERR_OK);
    EXPECT_EQ(SysSemLeave(h), ERR_OK);
    // Still held once: another thread must wait until the last leave.
    std::atomic<bool> released{false};
    std::atomic<bool> sawReleased{false};
    std::thread waiter([&] {
        SysSemEnter(h);
        sawReleased = released.load();
        SysSemLeave(h);
    });
    released = true;
    EXPECT_EQ(SysSemLeave(h), ERR_OK);
    waiter.join();
    EXPECT_TRUE(sawReleased.load()) << "the waiter got the lock while it was still held";
    EXPECT_EQ(SysSemLeave(h), ERR_FAILED) << "leaving a free lock";
    EXPECT_EQ(SysSemDelete(h), ERR_OK);
}

TEST_F(SysSemTest, SerialisesContendingThreads) {
    RTS_HANDLE h = SysSemCreate(nullptr);
    long counter = 0; // deliberately not atomic: only the lock protects it
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                SysSemEnter(h);
                SysSemEnter(h); // nested, as components do when they call each other
                ++counter;
                SysSemLeave(h);
                SysSemLeave(h);
            }
        });
    }
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(counter, 80000);
    EXPECT_EQ(SysSemDelete(h), ERR_OK);
}

TEST(SysInt, NestsAndExcludesOtherThreads) {
    FakeCM cm;
    EnterModule(cm, SysIntEntry, CMPID_SysInt);
    RTS_HANDLE outer = nullptr, inner = nullptr;
    ASSERT_EQ(SysIntDisableAll(&outer), ERR_OK);
    ASSERT_EQ(SysIntDisableAll(&inner), ERR_OK);
    EXPECT_NE(outer, inner) << "the save word records the nesting";
    RTS_RESULT fromOther = ERR_OK;
    std::thread([&] { fromOther = SysIntEnableAll(nullptr); }).join();
    EXPECT_EQ(fromOther, ERR_FAILED) << "another thread cannot enable what this one disabled";
    EXPECT_EQ(SysIntEnableAll(&inner), ERR_OK);
    std::atomic<bool> enabled{false};
    std::atomic<bool> sawEnabled{false};
    std::thread other([&] {
        RTS_HANDLE save = nullptr;
        SysIntDisableAll(&save);
        sawEnabled = enabled.load();
        SysIntEnableAll(&save);
    });
    enabled = true;
    EXPECT_EQ(SysIntEnableAll(&outer), ERR_OK);
    other.join();
    EXPECT_TRUE(sawEnabled.load());
    EXPECT_EQ(SysIntEnableAll(nullptr), ERR_FAILED) << "enable without disable";
}

TEST(SysInt, OutOfOrderSaveWordIsReportedButReleases) {
    RTS_HANDLE a = nullptr, b = nullptr;
    SysIntDisableAll(&a);
    SysIntDisableAll(&b);
    EXPECT_EQ(SysIntEnableAll(&a), ERR_PARAMETER);
    EXPECT_EQ(SysIntEnableAll(&b), ERR_PARAMETER);
    EXPECT_EQ(SysIntEnableAll(nullptr), ERR_FAILED) << "both levels were released";
}

} // namespace
