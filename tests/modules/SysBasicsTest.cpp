// Tests of the small system modules through their exported functions:
// SysTime, SysTimeRtc, SysOut, SysCpuHandling, the locks SysSem and SysInt,
// and SysExcept (soft exceptions and hardware faults caught per thread).
#include <array>
#include <atomic>
#include <csetjmp>
#include <cstdlib>
#include <thread>

#include "ModuleTestSupport.h"
#include "SysCpuHandlingItf.h"
#include "SysExceptItf.h"
#include "SysIntItf.h"
#include "SysOutItf.h"
#include "SysSemItf.h"
#include "SysTimeItf.h"
#include "SysTimeRtcItf.h"

using namespace kestrel::test;

namespace {

// Entries refuse a missing init record (the end-to-end test enters them all).
TEST(ModuleEntries, RefuseANullRecord) {
    for (PF_COMPONENT_ENTRY entry : {SysTimeEntry, SysMemEntry, CmpLogEntry, CmpSettingsEntry})
        EXPECT_EQ(entry(nullptr), ERR_PARAMETER);
}

// Milliseconds and microseconds advance together from one start.
TEST(SysTime, MillisecondsAndMicrosecondsAreMonotonicAndAgree) {
    RTS_UI64 us0 = 0, us1 = 0;
    RTS_UI32 ms0 = SysTimeGetMs();
    ASSERT_EQ(SysTimeGetUs(&us0), ERR_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(SysTimeGetUs(&us1), ERR_OK);
    RTS_UI32 ms1 = SysTimeGetMs();
    EXPECT_GE(us1 - us0, 20000u);
    EXPECT_LE(us1 / 1000, static_cast<RTS_UI64>(ms1));
    EXPECT_GE(us0 / 1000 + 1, static_cast<RTS_UI64>(ms0));
    EXPECT_EQ(SysTimeGetUs(nullptr), ERR_PARAMETER);
}

// The real-time clock reads the system clock; dates are right across leap
// years, centuries and the last year; local time differs by a zone offset.
TEST(SysTimeRtc, ConvertsToCalendarDates) {
    RTS_SYSTIME now = 0;
    ASSERT_EQ(SysTimeRtcHighResGet(&now), ERR_OK);
    auto sys =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch());
    EXPECT_LT(std::llabs(static_cast<long long>(now) - static_cast<long long>(sys.count())), 2000);
    EXPECT_EQ(SysTimeRtcHighResGet(nullptr), ERR_PARAMETER);
    struct Row {
        RTS_UI64 ms;
        RTS_SYSTIMEDATE date; // year, month, day, hour, minute, second, ms, weekday, yday
    };
    const Row rows[] = {
        {0ull, {1970, 1, 1, 0, 0, 0, 0, 4, 1}},
        {951782400000ull, {2000, 2, 29, 0, 0, 0, 0, 2, 60}},
        {1735689599000ull, {2024, 12, 31, 23, 59, 59, 0, 2, 366}},
        {4107542400000ull, {2100, 3, 1, 0, 0, 0, 0, 1, 60}},
        {253402300799999ull, {9999, 12, 31, 23, 59, 59, 999, 5, 365}},
    };
    auto fields = [](const RTS_SYSTIMEDATE &d) {
        return std::array<int, 9>{d.wYear,   d.wMonth,        d.wDay,       d.wHour, d.wMinute,
                                  d.wSecond, d.wMilliseconds, d.wDayOfWeek, d.wYday};
    };
    RTS_SYSTIMEDATE d{}, local{};
    for (const Row &r : rows) {
        ASSERT_EQ(SysTimeRtcConvertHighResToDate(&r.ms, &d), ERR_OK) << r.ms;
        EXPECT_EQ(fields(d), fields(r.date)) << r.ms;
    }
    const RTS_UI64 tooLate = ~0ull, ms = 1700000000000ull; // 2023-11-14 22:13:20 UTC
    for (RTS_RESULT r : {SysTimeRtcConvertHighResToDate(&tooLate, &d), SysTimeRtcConvertHighResToDate(nullptr, &d),
                         SysTimeRtcConvertHighResToDate(&ms, nullptr), SysTimeRtcConvertHighResToLocal(&ms, nullptr)})
        EXPECT_EQ(r, ERR_PARAMETER);
    ASSERT_EQ(SysTimeRtcConvertHighResToDate(&ms, &d), ERR_OK);
    ASSERT_EQ(SysTimeRtcConvertHighResToLocal(&ms, &local), ERR_OK);
    auto minutes = [](const RTS_SYSTIMEDATE &t) { return t.wYday * 1440 + t.wHour * 60 + t.wMinute; };
    EXPECT_LE(std::abs(minutes(local) - minutes(d)), 14 * 60);
    EXPECT_EQ(local.wSecond * 1000 + local.wMilliseconds, 20000);
}

RTS_RESULT CallVPrintf(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    RTS_RESULT r = SysOutVPrintf(fmt, args);
    va_end(args);
    return r;
}

void IecDouble(void *p) {
    static_cast<RTS_I32 *>(p)[1] = static_cast<RTS_I32 *>(p)[0] * 2;
}

// SysOut prints to standard output; an IEC function gets its parameter record.
TEST(SysOutAndCpu, PrintsAndCallsIecFunctions) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(CallVPrintf("%s=%d 0x%04x\n", "value", -12, 0xbeefu), ERR_OK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "value=-12 0xbeef\n");
    EXPECT_EQ(CallVPrintf(nullptr), ERR_PARAMETER);
    auto fn = reinterpret_cast<RTS_VOID_FCTPTR>(IecDouble);
    RTS_I32 params[2] = {21, 0};
    EXPECT_EQ(SysCpuCallIecFuncWithParams(fn, params, sizeof(params)), ERR_OK);
    EXPECT_EQ(params[1], 42);
    EXPECT_EQ(SysCpuCallIecFuncWithParams(nullptr, params, sizeof(params)), ERR_PARAMETER);
    EXPECT_EQ(SysCpuCallIecFuncWithParams(fn, nullptr, 8), ERR_PARAMETER);
}

// Concurrent adds lose nothing.
TEST(SysCpuHandling, AtomicAddIsAtomic) {
    volatile RTS_I32 value = 0;
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            while (!go)
                std::this_thread::yield();
            for (int i = 0; i < 100000; ++i)
                SysCpuAtomicAdd(&value, 1, nullptr);
        });
    }
    go = true;
    for (auto &th : threads)
        th.join();
    RTS_RESULT r = ERR_FAILED;
    EXPECT_EQ(SysCpuAtomicAdd(&value, -400005, &r), -5) << "400000 before";
    EXPECT_EQ(r, ERR_OK);
    EXPECT_EQ(SysCpuAtomicAdd(nullptr, 1, &r), 0);
    EXPECT_EQ(r, ERR_PARAMETER);
}

// A semaphore nests for its owner, only the owner leaves it, others wait for
// the last leave; handles that are no semaphore are refused.
TEST(SysSem, IsRecursiveAndOnlyTheOwnerLeaves) {
    alignas(16) unsigned char junk[64] = {};
    for (RTS_HANDLE bad : {static_cast<RTS_HANDLE>(nullptr), RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(junk)}) {
        EXPECT_EQ(SysSemEnter(bad), ERR_PARAMETER);
        EXPECT_EQ(SysSemLeave(bad), ERR_PARAMETER);
        EXPECT_EQ(SysSemDelete(bad), ERR_PARAMETER);
    }
    RTS_RESULT r = ERR_FAILED;
    RTS_HANDLE h = SysSemCreate(&r);
    ASSERT_EQ(r, ERR_OK);
    ASSERT_EQ(SysSemEnter(h), ERR_OK);
    ASSERT_EQ(SysSemEnter(h), ERR_OK);
    std::thread([&] { r = SysSemLeave(h); }).join();
    EXPECT_EQ(r, ERR_FAILED) << "a thread that does not hold the lock cannot leave it";
    EXPECT_EQ(SysSemLeave(h), ERR_OK);
    std::atomic<bool> released{false}, sawReleased{false};
    std::thread waiter([&] {
        SysSemEnter(h);
        sawReleased = released.load();
        SysSemLeave(h);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    released = true;
    EXPECT_EQ(SysSemLeave(h), ERR_OK);
    waiter.join();
    EXPECT_TRUE(sawReleased.load()) << "the waiter got the lock while it was still held";
    EXPECT_EQ(SysSemLeave(h), ERR_FAILED) << "leaving a free lock";
    EXPECT_EQ(SysSemDelete(h), ERR_OK);
}

// Contending threads with nested enters never share the lock.
TEST(SysSem, SerialisesContendingThreads) {
    RTS_HANDLE h = SysSemCreate(nullptr);
    long counter = 0; // deliberately not atomic: only the lock protects it
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                SysSemEnter(h);
                SysSemEnter(h);
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

// The interrupt lock nests and excludes other threads until the last enable;
// enables out of order are reported but release.
TEST(SysInt, NestsAndExcludesOtherThreads) {
    RTS_HANDLE outer = nullptr, inner = nullptr;
    ASSERT_EQ(SysIntDisableAll(&outer), ERR_OK);
    ASSERT_EQ(SysIntDisableAll(&inner), ERR_OK);
    RTS_RESULT fromOther = ERR_OK;
    std::thread([&] { fromOther = SysIntEnableAll(nullptr); }).join();
    EXPECT_EQ(fromOther, ERR_FAILED) << "another thread cannot enable what this one disabled";
    EXPECT_EQ(SysIntEnableAll(&inner), ERR_OK);
    std::atomic<bool> enabled{false}, sawEnabled{false};
    std::thread other([&] {
        RTS_HANDLE save = nullptr;
        SysIntDisableAll(&save);
        sawEnabled = enabled.load();
        SysIntEnableAll(&save);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    enabled = true;
    EXPECT_EQ(SysIntEnableAll(&outer), ERR_OK);
    other.join();
    EXPECT_TRUE(sawEnabled.load());
    SysIntDisableAll(&outer);
    SysIntDisableAll(&inner);
    EXPECT_EQ(SysIntEnableAll(&outer), ERR_PARAMETER);
    EXPECT_EQ(SysIntEnableAll(&inner), ERR_PARAMETER);
    EXPECT_EQ(SysIntEnableAll(nullptr), ERR_FAILED) << "both levels were released";
}

class SysExceptTest : public ModuleTest<SysExceptEntry> {
  protected:
    void TearDown() override { cm_.Hook(CH_EXIT_FINAL); }
};

// Runs fn guarded; returns the exception code caught, or 0.
template <typename F> RTS_UI32 Guarded(F fn) {
    static RTS_EXCEPT_FRAME frame; // static: survives the jump unchanged
    if (setjmp(frame.jmpBuf) == 0) {
        if (SysExceptRegisterJmpBuf(&frame) != ERR_OK)
            return 0xFFFFFFFFu;
        fn();
        SysExceptUnregisterJmpBuf(&frame);
        return 0;
    }
    RTS_UI32 code = 0;
    EXPECT_EQ(SysExceptCatch(&frame, &code), ERR_OK);
    return code;
}

// A soft exception jumps to the innermost frame; the outer one catches the next.
TEST_F(SysExceptTest, InnerFrameCatchesFirst) {
    volatile RTS_UI32 inner = 0;
    volatile int stage = 0;
    RTS_UI32 outer = Guarded([&] {
        inner = Guarded([] { SysExceptGenerateException(RTSEXCPT_SOFT); });
        stage = 1;
        SysExceptGenerateException(0x42);
        stage = 2;
    });
    EXPECT_EQ(inner, RTSEXCPT_SOFT);
    EXPECT_EQ(outer, 0x42u);
    EXPECT_EQ(stage, 1);
    EXPECT_EQ(Guarded([] {}), 0u);
}

// Without a catch point on its thread an exception is logged and returns;
// null, unknown and duplicate frames are refused.
TEST_F(SysExceptTest, WithoutCatchPointTheExceptionIsLoggedAndReturns) {
    static RTS_EXCEPT_FRAME mine;
    ASSERT_EQ(SysExceptRegisterJmpBuf(&mine), ERR_OK);
    EXPECT_EQ(SysExceptRegisterJmpBuf(&mine), ERR_DUPLICATE);
    RTS_RESULT other = ERR_OK;
    std::thread([&] { other = SysExceptGenerateException(5); }).join();
    EXPECT_EQ(other, ERR_NO_OBJECT) << "another thread's exception must not jump to this thread's frame";
    EXPECT_EQ(SysExceptUnregisterJmpBuf(&mine), ERR_OK);
    EXPECT_EQ(LogRecorder::Count(std::to_string(LOG_EXCEPTION) + " Exception <id>0x00000005</id> raised without"), 1u);
    RTS_UI32 code = 1;
    EXPECT_EQ(SysExceptCatch(&mine, &code), ERR_NO_OBJECT) << "nothing was caught";
    EXPECT_EQ(code, RTSEXCPT_NOEXCEPTION);
    for (RTS_RESULT r :
         {SysExceptRegisterJmpBuf(nullptr), SysExceptUnregisterJmpBuf(nullptr), SysExceptCatch(nullptr, &code)})
        EXPECT_EQ(r, ERR_PARAMETER);
    EXPECT_EQ(SysExceptUnregisterJmpBuf(&mine), ERR_NO_OBJECT);
}

int *volatile g_null = nullptr;
volatile int g_zero = 0;

// The sanitizer build stops at null stores and divisions by zero itself.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// Access violations (twice: the handler stays armed) and division by zero.
TEST_F(SysExceptTest, HardwareFaultsAreCaught) {
    ASSERT_EQ(cm_.Enter(SysExceptEntry), ERR_OK) << "a second entry keeps the one set of handlers";
    if (kSanitized)
        GTEST_SKIP() << "UndefinedBehaviorSanitizer reports the fault itself";
    EXPECT_EQ(Guarded([] { *g_null = 1; }), RTSEXCPT_ACCESS_VIOLATION);
    EXPECT_EQ(Guarded([] { *g_null = 2; }), RTSEXCPT_ACCESS_VIOLATION);
    volatile int result = 0;
    EXPECT_EQ(Guarded([&] { result = 10 / g_zero; }), RTSEXCPT_DIVIDEBYZERO);
}

} // namespace
