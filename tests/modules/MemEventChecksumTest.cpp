// Tests of SysMem (accounts, leak report, fault injection from the settings),
// CmpEventMgr (events, references, callbacks) and CmpChecksum (CRC-32).
#include <cstdint>
#include <zlib.h>

#include "CmpChecksumItf.h"
#include "CmpEventMgrItf.h"
#include "CmpSettingsItf.h"
#include "ModuleTestSupport.h"
#include "SysMemItf.h"

using namespace kestrel::test;

namespace {

using Account = std::pair<RTS_SIZE, RTS_SIZE>; // bytes, blocks

class SysMemTest : public ModuleTest<SysMemEntry> {
  protected:
    void Provide() override {
        cm_.Provide("SettgGetIntValue", &SettgGetIntValue);
        cm_.Provide("SettgGetStringValue", &SettgGetStringValue);
    }
    // Writes the [SysMem] section and lets SysMem read it.
    void Configure(const std::string &section) {
        ASSERT_EQ(SettgSetDatabaseName(dir_.Write("mem.cfg", "[SysMem]\n" + section).c_str()), ERR_OK);
        cm_.Hook(CH_INIT_SYSTEM);
    }
    // The account of a component; both -1 when it has none.
    static Account Held(const char *name) {
        Account held{static_cast<RTS_SIZE>(-1), static_cast<RTS_SIZE>(-1)};
        SysMemGetAccount(name, &held.first, &held.second);
        return held;
    }
    TempDir dir_;
};

// Aligned blocks are charged to the caller ("?" without name) and given back
// to the account that paid, whatever name comes along; bad sizes and frees fail.
TEST_F(SysMemTest, AccountsPerComponent) {
    RTS_RESULT r = ERR_FAILED;
    void *a = SysMemAllocData("AcctA", 100, &r);
    EXPECT_EQ(r, ERR_OK);
    void *b = SysMemAllocData("AcctA", 28, nullptr);
    void *c = SysMemAllocData("AcctB", 7, nullptr);
    void *d = SysMemAllocData(nullptr, 4, nullptr);
    for (void *p : {a, b, c, d}) {
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % alignof(std::max_align_t), 0u);
    }
    EXPECT_EQ(Held("AcctA"), Account(128, 2));
    EXPECT_EQ(Held("AcctB"), Account(7, 1));
    EXPECT_EQ(Held("?"), Account(4, 1));
    EXPECT_EQ(SysMemFreeData("SomebodyElse", c), ERR_OK);
    EXPECT_EQ(Held("AcctB"), Account(0, 0));
    for (void *p : {a, b, d})
        EXPECT_EQ(SysMemFreeData("AcctA", p), ERR_OK);
    EXPECT_EQ(Held("AcctA"), Account(0, 0));
    EXPECT_EQ(Held("?"), Account(0, 0));
    EXPECT_EQ(SysMemGetAccount("NeverSeen", nullptr, nullptr), ERR_NO_OBJECT);
    EXPECT_EQ(SysMemFreeData("Bad", nullptr), ERR_PARAMETER);
    EXPECT_EQ(SysMemAllocData("Huge", static_cast<RTS_SIZE>(-1), &r), nullptr);
    EXPECT_EQ(r, ERR_NOMEMORY);
}

// The final hook: one error line per component that holds memory, with what
// it holds; once the logger has left, SysMem no longer calls it.
TEST_F(SysMemTest, FinalHookReportsOneLinePerLeakingComponent) {
    void *held[] = {SysMemAllocData("LeakA", 10, nullptr), SysMemAllocData("LeakA", 20, nullptr)};
    EXPECT_EQ(cm_.Hook(CH_EXIT_FINAL), ERR_OK);
    EXPECT_EQ(LogRecorder::Count("4 **** Memory leak: <cmp>LeakA</cmp> still holds 30 bytes in 2 blocks"), 1u);
    std::string name = "CmpLog";
    cm_.Hook(CH_COMPONENT_EXIT, reinterpret_cast<RTS_UINTPTR>(name.c_str()));
    LogRecorder::Lines().clear();
    cm_.Hook(CH_EXIT_FINAL);
    EXPECT_TRUE(LogRecorder::Lines().empty()) << "the logger has left";
    for (void *p : held)
        SysMemFreeData("x", p);
}

// FailAllocation=N fails the Nth allocation (of FailAllocationComponent when
// set); a negative N is reported and ignored.
TEST_F(SysMemTest, FailAllocationMakesTheNthAllocationFail) {
    // One allocation per caller: "+" for a block, "-" for ERR_NOMEMORY.
    auto run = [this](const std::string &settings, std::vector<const char *> callers) {
        LogRecorder::Lines().clear();
        Configure(settings);
        std::string outcome;
        std::vector<void *> held;
        for (const char *caller : callers) {
            RTS_RESULT r = ERR_FAILED;
            held.push_back(SysMemAllocData(caller, 8, &r));
            outcome += held.back() != nullptr ? '+' : '-';
            EXPECT_EQ(r, held.back() != nullptr ? ERR_OK : ERR_NOMEMORY) << caller;
        }
        for (void *p : held)
            SysMemFreeData("x", p);
        return outcome;
    };
    EXPECT_EQ(run("FailAllocation=3\n", {"Inject", "Inject", "Inject", "Inject"}), "++-+");
    EXPECT_EQ(LogRecorder::Count("2 Injected allocation failure for <cmp>Inject</cmp> (8 bytes)"), 1u);
    EXPECT_EQ(run("FailAllocation=2\nFailAllocationComponent=Victim\n", {"Bystander", "Victim", "Bystander", "Victim"}),
              "+++-");
    EXPECT_EQ(run("FailAllocation=-4\n", {"Neg", "Neg", "Neg", "Neg"}), "++++");
    EXPECT_EQ(LogRecorder::Count("FailAllocation=-4 is negative"), 1u);
}

// Calls seen by the event callbacks.
std::vector<std::string> g_calls;
RTS_HANDLE g_event = nullptr;

// Records the parameter id and user parameter; answers through the block.
void CallbackA(EventParam *p) {
    g_calls.push_back("A:" + std::to_string(p->ulParamId) + ":" + static_cast<const char *>(p->pUserParameter));
    if (p->pParameter != nullptr)
        static_cast<RTS_UI32 *>(p->pParameter)[1] = 7;
}
void CallbackB(EventParam *p) {
    g_calls.push_back("B:" + std::to_string(p->EventId));
}
void CallbackRegistersB(EventParam *) {
    g_calls.push_back("registering");
    EventRegisterCallbackFunction(g_event, CallbackB, nullptr);
}

class CmpEventMgrTest : public ModuleTest<CmpEventMgrEntry> {
  protected:
    void Provide() override {
        g_calls.clear();
        cm_.Provide("SysMemAllocData", &SysMemAllocData);
        cm_.Provide("SysMemFreeData", &SysMemFreeData);
    }
};

// Callbacks run in registration order with their user parameter, answer in
// the parameter block, register once; one added during a post runs next time.
TEST_F(CmpEventMgrTest, CallbacksRunInRegistrationOrderWithTheirUserParameter) {
    RTS_RESULT r = ERR_FAILED;
    RTS_HANDLE h = g_event = EventCreate(0x10006, 1, &r);
    ASSERT_EQ(r, ERR_OK);
    char user[] = "u1";
    ASSERT_EQ(EventRegisterCallbackFunction(h, CallbackB, nullptr), ERR_OK);
    ASSERT_EQ(EventRegisterCallbackFunction(h, CallbackA, user), ERR_OK);
    EXPECT_EQ(EventRegisterCallbackFunction(h, CallbackA, user), ERR_DUPLICATE);
    RTS_UI32 block[2] = {3, 0};
    EXPECT_EQ(EventPost2(h, 5, 1, block), ERR_OK);
    EXPECT_EQ(g_calls, (std::vector<std::string>{"B:65542", "A:5:u1"}));
    EXPECT_EQ(block[1], 7u);
    EXPECT_EQ(EventUnregisterCallbackFunction(h, CallbackB), ERR_OK);
    EXPECT_EQ(EventUnregisterCallbackFunction(h, CallbackB), ERR_NO_OBJECT);
    ASSERT_EQ(EventRegisterCallbackFunction(h, CallbackRegistersB, nullptr), ERR_OK);
    g_calls.clear();
    EventParam param{};
    param.ulParamId = 9;
    EXPECT_EQ(EventPost(h, &param), ERR_OK);
    EXPECT_EQ(EventPost(h, &param), ERR_OK);
    EXPECT_EQ(g_calls, (std::vector<std::string>{"A:9:u1", "registering", "A:9:u1", "registering", "B:65542"}));
    EXPECT_EQ(EventDelete(h), ERR_OK);
}

// Event id and provider identify an event; it lives until the last delete or close.
TEST_F(CmpEventMgrTest, EventsLiveWhileReferenced) {
    RTS_RESULT r = ERR_OK;
    EXPECT_EQ(EventOpen(0x20001, 0x500, &r), RTS_INVALID_HANDLE);
    EXPECT_EQ(r, ERR_NO_OBJECT);
    RTS_HANDLE created = EventCreate(0x20001, 0x500, nullptr);
    RTS_HANDLE opened = EventOpen(0x20001, 0x500, &r);
    EXPECT_EQ(r, ERR_OK);
    EXPECT_EQ(opened, created);
    EXPECT_EQ(EventOpen(0x20001, 0x501, &r), RTS_INVALID_HANDLE) << "the provider's CmpId is part of the identity";
    EXPECT_EQ(EventCreate(0x20001, 0x500, nullptr), created);
    EXPECT_EQ(EventDelete(created), ERR_OK);
    EXPECT_EQ(EventDelete(created), ERR_OK);
    EXPECT_EQ(EventOpen(0x20001, 0x500, nullptr), opened) << "still open once";
    EXPECT_EQ(EventClose(opened), ERR_OK);
    EXPECT_EQ(EventClose(opened), ERR_OK);
    EXPECT_EQ(EventOpen(0x20001, 0x500, &r), RTS_INVALID_HANDLE);
    EXPECT_EQ(EventClose(opened), ERR_PARAMETER) << "gone";
}

// Event records come from SysMem; events left at exit are named and freed.
TEST_F(CmpEventMgrTest, RecordsComeFromSysMemAndLeftoversGoAtExit) {
    RTS_SIZE before = 0, bytes = 0;
    SysMemGetAccount("CmpEventMgr", &before, nullptr);
    RTS_HANDLE h = EventCreate(0x40001, 2, nullptr);
    SysMemGetAccount("CmpEventMgr", &bytes, nullptr);
    EXPECT_GT(bytes, before);
    EXPECT_EQ(cm_.Hook(CH_EXIT), ERR_OK);
    EXPECT_EQ(LogRecorder::Count("Event <id>0x00040001</id> of <id>0x00000002</id> was not deleted"), 1u);
    SysMemGetAccount("CmpEventMgr", &bytes, nullptr);
    EXPECT_EQ(bytes, before);
    EXPECT_EQ(EventPost2(h, 0, 0, nullptr), ERR_PARAMETER);
}

// Null callbacks and handles that are no event are refused.
TEST_F(CmpEventMgrTest, BadArguments) {
    RTS_HANDLE h = EventCreate(0x50001, 3, nullptr);
    for (RTS_RESULT r :
         {EventRegisterCallbackFunction(h, nullptr, nullptr),
          EventRegisterCallbackFunction(nullptr, CallbackB, nullptr), EventUnregisterCallbackFunction(h, nullptr),
          EventDelete(RTS_INVALID_HANDLE), EventPost(nullptr, nullptr)})
        EXPECT_EQ(r, ERR_PARAMETER);
    EXPECT_EQ(EventPost(h, nullptr), ERR_OK);
    EventDelete(h);
}

// Bit by bit, reflected polynomial 0xEDB88320, no inversions.
RTS_UI32 RawCrc(RTS_UI32 r, const std::string &data) {
    for (unsigned char c : data) {
        r ^= c;
        for (int i = 0; i < 8; ++i)
            r = (r & 1) != 0 ? (r >> 1) ^ 0xEDB88320u : r >> 1;
    }
    return r;
}

const RTS_UI8 *Bytes(const std::string &s) {
    return reinterpret_cast<const RTS_UI8 *>(s.data());
}

// CRC32 is zlib's IEEE CRC-32 and continues over a split; the "2" family is
// the raw register (init 0, no final inversion) from any register value.
TEST(CmpChecksum, BothFamiliesMatchTheReferenceAndSplitFreely) {
    std::string block(4096, '\0');
    for (std::size_t i = 0; i < block.size(); ++i)
        block[i] = static_cast<char>((i * 131u + 7u) & 0xFF);
    for (const std::string &in : {std::string(), std::string("123456789"), std::string(1, '\0'), block}) {
        EXPECT_EQ(CRC32Finish(CRC32Update(CRC32Init(), Bytes(in), in.size())),
                  static_cast<RTS_UI32>(crc32(0, Bytes(in), static_cast<uInt>(in.size()))))
            << in.size();
        EXPECT_EQ(CRC32Finish2(CRC32Update2(CRC32Init(), Bytes(in), in.size())), RawCrc(0, in)) << in.size();
        EXPECT_EQ(CRC32Update2(0x12345678u, Bytes(in), in.size()), RawCrc(0x12345678u, in)) << in.size();
    }
    EXPECT_EQ(CRC32Update2(CRC32Init(), Bytes("123456789"), 9), 0x2DFD2D88u);
    RTS_UI32 first = CRC32Update(CRC32Init(), Bytes(block), 255);
    EXPECT_EQ(CRC32Update(first, Bytes(block) + 255, block.size() - 255), CRC32Update(0, Bytes(block), 4096));
    EXPECT_EQ(CRC32Update(0xABCDEF01u, nullptr, 10), 0xABCDEF01u) << "no data leaves the value alone";
    EXPECT_EQ(CRC32Update2(0xABCDEF01u, nullptr, 10), 0xABCDEF01u);
}

} // namespace
