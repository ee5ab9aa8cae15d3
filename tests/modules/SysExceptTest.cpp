// Tests of SysExcept: soft exceptions and real hardware faults turned into
// a jump to the innermost catch point of the faulting thread.
#include <csetjmp>
#include <thread>

#include "ModuleTestSupport.h"
#include "SysExceptItf.h"

using namespace kestrel::test;

namespace {

class SysExceptTest : public ModuleTest<SysExceptEntry, CMPID_SysExcept> {
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

TEST_F(SysExceptTest, SoftExceptionJumpsToTheCatchPoint) {
    volatile bool after = false;
    RTS_UI32 code = Guarded([&] {
        SysExceptGenerateException(0x1234);
        after = true;
    });
    EXPECT_EQ(code, 0x1234u);
    EXPECT_FALSE(after);
    EXPECT_EQ(Guarded([] {}), 0u) << "no exception, no catch";
}

TEST_F(SysExceptTest, InnerFrameCatchesFirst) {
    volatile RTS_UI32 inner = 0;
    volatile int stage = 0;
    RTS_UI32 outer = Guarded([&] {
        inner = Guarded([] { SysExceptGenerateException(RTSEXCPT_SOFT); });
        stage = 1;
        SysExceptGenerateException(0x42); // the outer frame is still registered
        stage = 2;
    });
    EXPECT_EQ(inner, RTSEXCPT_SOFT);
    EXPECT_EQ(outer, 0x42u);
    EXPECT_EQ(stage, 1);
}

TEST_F(SysExceptTest, WithoutCatchPointTheExceptionIsLoggedAndReturns) {
    EXPECT_EQ(SysExceptGenerateException(0x77), ERR_NO_OBJECT);
    auto lines = LogRecorder::Containing("without a catch point");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].classId, LOG_EXCEPTION);
}

TEST_F(SysExceptTest, RegistrationErrors) {
    RTS_EXCEPT_FRAME f{};
    EXPECT_EQ(SysExceptRegisterJmpBuf(nullptr), ERR_PARAMETER);
    EXPECT_EQ(SysExceptUnregisterJmpBuf(nullptr), ERR_PARAMETER);
    EXPECT_EQ(SysExceptUnregisterJmpBuf(&f), ERR_NO_OBJECT);
    ASSERT_EQ(SysExceptRegisterJmpBuf(&f), ERR_OK);
    EXPECT_EQ(SysExceptRegisterJmpBuf(&f), ERR_DUPLICATE);
    EXPECT_EQ(SysExceptUnregisterJmpBuf(&f), ERR_OK);
    RTS_UI32 code = 1;
    EXPECT_EQ(SysExceptCatch(&f, &code), ERR_NO_OBJECT) << "nothing was caught";
    EXPECT_EQ(code, RTSEXCPT_NOEXCEPTION);
    EXPECT_EQ(SysExceptCatch(nullptr, &code), ERR_PARAMETER);
}

TEST_F(SysExceptTest, FramesBelongToTheirThread) {
    static RTS_EXCEPT_FRAME mine;
    ASSERT_EQ(SysExceptRegisterJmpBuf(&mine), ERR_OK);
    RTS_RESULT other = ERR_OK;
    std::thread([&] { other = SysExceptGenerateException(5); }).join();
    EXPECT_EQ(other, ERR_NO_OBJECT) << "another thread's exception must not jump to this thread's frame";
    EXPECT_EQ(SysExceptUnregisterJmpBuf(&mine), ERR_OK);
}

int *volatile g_null = nullptr;
volatile int g_zero = 0;

// The sanitizer build (ASan with UBSan) stops at null stores and integer
// divisions by zero itself, before any signal.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

TEST_F(SysExceptTest, HardwareFaultsAreCaught) {
    if (kSanitized)
        GTEST_SKIP() << "UndefinedBehaviorSanitizer reports the fault itself";
    EXPECT_EQ(Guarded([] { *g_null = 1; }), RTSEXCPT_ACCESS_VIOLATION);
    // A second fault after the first jump: the handler is still armed.
    EXPECT_EQ(Guarded([] { *g_null = 2; }), RTSEXCPT_ACCESS_VIOLATION);
    volatile int result = 0;
    EXPECT_EQ(Guarded([&] { result = 10 / g_zero; }), RTSEXCPT_DIVIDEBYZERO);
}

} // namespace
