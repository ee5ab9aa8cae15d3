// Tests of the small system modules through their exported functions:
// SysTime, SysTimeRtc, SysOut, SysCpuHandling, and the locks SysSem
// (recursive semaphores) and SysInt (the process-wide interrupt lock).
#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <thread>
#include <vector>

#include "ModuleTestSupport.h"
#include "SysCpuHandlingItf.h"
#include "SysIntItf.h"
#include "SysOutItf.h"
#include "SysSemItf.h"
#include "SysTimeItf.h"
#include "SysTimeRtcItf.h"

using namespace kestrel::test;

namespace {

TEST(ModuleExports, EachModuleRegistersExactlyItsFunctions) {
    struct Row {
        PF_COMPONENT_ENTRY entry;
        CMPID id;
        const char *names;
    };
    const Row rows[] = {
        {SysTimeEntry, CMPID_SysTime, "SysTimeGetMs SysTimeGetUs"},
        {SysTimeRtcEntry, CMPID_SysTimeRtc,
         "SysTimeRtcConvertHighResToDate SysTimeRtcConvertHighResToLocal SysTimeRtcHighResGet"},
        {SysOutEntry, CMPID_SysOut, "SysOutVPrintf"},
        {SysCpuHandlingEntry, CMPID_SysCpuHandling, "SysCpuAtomicAdd SysCpuCallIecFuncWithParams"},
        {SysIntEntry, CMPID_SysInt, "SysIntDisableAll SysIntEnableAll"},
        {SysSemEntry, CMPID_SysSem, "SysSemCreate SysSemDelete SysSemEnter SysSemLeave"},
        {SysMemEntry, CMPID_SysMem, "SysMemAllocData SysMemFreeData"},
        {SysExceptEntry, CMPID_SysExcept,
         "SysExceptCatch SysExceptGenerateException SysExceptRegisterJmpBuf SysExceptUnregisterJmpBuf"},
        {CmpChecksumEntry, CMPID_CmpChecksum, "CRC32Finish CRC32Finish2 CRC32Init CRC32Update CRC32Update2"},
        {CmpEventMgrEntry, CMPID_CmpEventMgr,
         "EventClose EventCreate EventDelete EventOpen EventPost EventPost2 EventRegisterCallbackFunction "
         "EventUnregisterCallbackFunction"},
        {CmpSettingsEntry, CMPID_CmpSettings,
         "SettgGetDatabaseName SettgGetIntValue SettgGetStringValue SettgGetWStringValue SettgRemoveKey "
         "SettgSetDatabaseName SettgSetIntValue SettgSetOptions SettgSetStringValue"},
        {CmpLogEntry, CMPID_CmpLog,
         "LogAdd LogAddArg LogCreate LogDelete LogGetFirstEntry LogGetNextEntry LogUnregisterBackend"},
    };
    for (const Row &row : rows) {
        FakeCM cm;
        EnterModule(cm, row.entry, row.id);
        EXPECT_EQ(ExportNames(cm), row.names) << "CmpId " << row.id;
        EXPECT_TRUE(cm.IecExports().empty());
        EXPECT_NE(cm.Init().pfHookFunction, nullptr);
    }
}

TEST(ModuleExports, EntryRefusesNullRecord) {
    for (PF_COMPONENT_ENTRY entry : {SysTimeEntry, SysMemEntry, CmpLogEntry, CmpSettingsEntry, SysSemEntry})
        EXPECT_EQ(entry(nullptr), ERR_PARAMETER);
}

TEST(SysTime, MillisecondsAndMicrosecondsAreMonotonicAndAgree) {
    FakeCM cm;
    EnterModule(cm, SysTimeEntry, CMPID_SysTime);
    RTS_UI64 us0 = 0, us1 = 0;
    RTS_UI32 ms0 = SysTimeGetMs();
    ASSERT_EQ(SysTimeGetUs(&us0), ERR_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(SysTimeGetUs(&us1), ERR_OK);
    RTS_UI32 ms1 = SysTimeGetMs();
    EXPECT_GE(us1 - us0, 20000u);
    EXPECT_GE(ms1 - ms0, 20u);
    // Both count from the same start: the microseconds hold the milliseconds.
    EXPECT_LE(us1 / 1000, static_cast<RTS_UI64>(ms1));
    EXPECT_GE(us0 / 1000 + 1, static_cast<RTS_UI64>(ms0));
    EXPECT_EQ(SysTimeGetUs(nullptr), ERR_PARAMETER);
}

TEST(SysTimeRtc, HighResClockFollowsTheSystemClock) {
    FakeCM cm;
    EnterModule(cm, SysTimeRtcEntry, CMPID_SysTimeRtc);
    RTS_SYSTIME t = 0;
    ASSERT_EQ(SysTimeRtcHighResGet(&t), ERR_OK);
    auto now =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    EXPECT_LT(static_cast<long long>(t) - now, 2000);
    EXPECT_GT(static_cast<long long>(t) - now, -2000);
    EXPECT_EQ(SysTimeRtcHighResGet(nullptr), ERR_PARAMETER);
}

TEST(SysTimeRtc, ConvertsToCalendarDates) {
    struct Row {
        RTS_UI64 ms;
        RTS_SYSTIMEDATE date; // year, month, day, hour, minute, second, ms, weekday, yday
    };
    const Row rows[] = {
        {0ull, {1970, 1, 1, 0, 0, 0, 0, 4, 1}},
        {951782400000ull, {2000, 2, 29, 0, 0, 0, 0, 2, 60}},
        {1709251199999ull, {2024, 2, 29, 23, 59, 59, 999, 4, 60}},
        {1735689599000ull, {2024, 12, 31, 23, 59, 59, 0, 2, 366}},
        {4102444800000ull, {2100, 1, 1, 0, 0, 0, 0, 5, 1}},
        {4107542400000ull, {2100, 3, 1, 0, 0, 0, 0, 1, 60}},
        {253402300799999ull, {9999, 12, 31, 23, 59, 59, 999, 5, 365}},
    };
    auto fields = [](const RTS_SYSTIMEDATE &d) {
        return std::array<int, 9>{d.wYear,   d.wMonth,        d.wDay,       d.wHour, d.wMinute,
                                  d.wSecond, d.wMilliseconds, d.wDayOfWeek, d.wYday};
    };
    for (const Row &r : rows) {
        RTS_SYSTIMEDATE d{};
        ASSERT_EQ(SysTimeRtcConvertHighResToDate(&r.ms, &d), ERR_OK) << r.ms;
        EXPECT_EQ(fields(d), fields(r.date)) << r.ms;
    }
    RTS_SYSTIMEDATE d{};
    const RTS_UI64 tooLate = ~0ull;
    EXPECT_EQ(SysTimeRtcConvertHighResToDate(&tooLate, &d), ERR_PARAMETER);
    EXPECT_EQ(SysTimeRtcConvertHighResToDate(nullptr, &d), ERR_PARAMETER);
    EXPECT_EQ(SysTimeRtcConvertHighResToDate(&rows[0].ms, nullptr), ERR_PARAMETER);
}

TEST(SysTimeRtc, LocalTimeDiffersFromUtcByAZoneOffset) {
    const RTS_UI64 ms = 1700000000000ull; // 2023-11-14 22:13:20 UTC
    RTS_SYSTIMEDATE utc{}, local{};
    ASSERT_EQ(SysTimeRtcConvertHighResToDate(&ms, &utc), ERR_OK);
    ASSERT_EQ(SysTimeRtcConvertHighResToLocal(&ms, &local), ERR_OK);
    auto minutes = [](const RTS_SYSTIMEDATE &d) { return d.wYday * 1440 + d.wHour * 60 + d.wMinute; };
    int diff = minutes(local) - minutes(utc);
    EXPECT_LE(diff, 14 * 60);
    EXPECT_GE(diff, -12 * 60);
    EXPECT_EQ(local.wSecond, utc.wSecond);
    EXPECT_EQ(local.wMilliseconds, utc.wMilliseconds);
    EXPECT_EQ(SysTimeRtcConvertHighResToLocal(&ms, nullptr), ERR_PARAMETER);
}

RTS_RESULT CallVPrintf(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    RTS_RESULT r = SysOutVPrintf(fmt, args);
    va_end(args);
    return r;
}

TEST(SysOut, PrintsFormattedTextToStandardOutput) {
    FakeCM cm;
    EnterModule(cm, SysOutEntry, CMPID_SysOut);
    testing::internal::CaptureStdout();
    EXPECT_EQ(CallVPrintf("%s=%d 0x%04x\n", "value", -12, 0xbeefu), ERR_OK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "value=-12 0xbeef\n");
    va_list none{};
    EXPECT_EQ(SysOutVPrintf(nullptr, none), ERR_PARAMETER);
}

TEST(SysCpuHandling, AtomicAddIsAtomicAndWraps) {
    FakeCM cm;
    EnterModule(cm, SysCpuHandlingEntry, CMPID_SysCpuHandling);
    volatile RTS_I32 value = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&value] {
            for (int i = 0; i < 20000; ++i)
                SysCpuAtomicAdd(&value, 1, nullptr);
        });
    }
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(value, 80000);
    RTS_RESULT r = ERR_FAILED;
    EXPECT_EQ(SysCpuAtomicAdd(&value, -80005, &r), -5);
    EXPECT_EQ(r, ERR_OK);
    volatile RTS_I32 top = INT_MAX;
    EXPECT_EQ(SysCpuAtomicAdd(&top, 1, nullptr), INT_MIN);
    EXPECT_EQ(SysCpuAtomicAdd(nullptr, 1, &r), 0);
    EXPECT_EQ(r, ERR_PARAMETER);
}

struct IecParams {
    RTS_I32 in;
    RTS_I32 result;
};

void IecDouble(void *p) {
    auto *params = static_cast<IecParams *>(p);
    params->result = params->in * 2;
}

TEST(SysCpuHandling, CallsIecFunctionWithItsParameterRecord) {
    IecParams params{21, 0};
    EXPECT_EQ(SysCpuCallIecFuncWithParams(reinterpret_cast<RTS_VOID_FCTPTR>(IecDouble), &params, sizeof(params)),
              ERR_OK);
    EXPECT_EQ(params.result, 42);
    EXPECT_EQ(SysCpuCallIecFuncWithParams(nullptr, &params, sizeof(params)), ERR_PARAMETER);
    EXPECT_EQ(SysCpuCallIecFuncWithParams(reinterpret_cast<RTS_VOID_FCTPTR>(IecDouble), nullptr, 8), ERR_PARAMETER);
}

using SysSemTest = ModuleTest<SysSemEntry, CMPID_SysSem>;

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
    RTS_RESULT r = ERR_FAILED;
    RTS_HANDLE h = SysSemCreate(&r);
    ASSERT_EQ(r, ERR_OK);
    ASSERT_NE(h, RTS_INVALID_HANDLE);
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
    ASSERT_NE(h, RTS_INVALID_HANDLE) << "the result pointer is optional";
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
