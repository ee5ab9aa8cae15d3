// Tests of CmpChecksum (both CRC families against zlib and a bitwise
// reference) and CmpEventMgr (events, references, callbacks in order).
#include <string>
#include <vector>
#include <zlib.h>

#include "CmpChecksumItf.h"
#include "CmpEventMgrItf.h"
#include "ModuleTestSupport.h"
#include "SysMemItf.h"

using namespace kestrel::test;

namespace {

// Bit by bit, reflected polynomial 0xEDB88320.
RTS_UI32 ReferenceCrc(const std::string &data, RTS_UI32 init, RTS_UI32 xorOut) {
    RTS_UI32 r = init;
    for (unsigned char c : data) {
        r ^= c;
        for (int i = 0; i < 8; ++i)
            r = (r & 1) != 0 ? (r >> 1) ^ 0xEDB88320u : r >> 1;
    }
    return r ^ xorOut;
}

std::vector<std::string> Inputs() {
    std::string block(4096, '\0');
    for (std::size_t i = 0; i < block.size(); ++i)
        block[i] = static_cast<char>((i * 131u + 7u) & 0xFF);
    return {"", "a", "123456789", std::string(1, '\0'), std::string(300, '\xFF'), block};
}

const RTS_UI8 *Bytes(const std::string &s) {
    return reinterpret_cast<const RTS_UI8 *>(s.data());
}

struct Family {
    const char *name;
    RTS_UI32 (*update)(RTS_UI32, const RTS_UI8 *, RTS_SIZE);
    RTS_UI32 (*finish)(RTS_UI32);
    RTS_UI32 initAndXor; // of the reference
    RTS_UI32 check;      // of "123456789"
};
const Family kFamilies[] = {{"CRC32", CRC32Update, CRC32Finish, 0xFFFFFFFFu, 0xCBF43926u},
                            {"CRC32 raw register", CRC32Update2, CRC32Finish2, 0, 0x2DFD2D88u}};

RTS_UI32 Crc(const Family &f, const std::string &in) {
    return f.finish(f.update(CRC32Init(), Bytes(in), in.size()));
}

TEST(CmpChecksum, BothFamiliesMatchTheReferenceAndSplitFreely) {
    FakeCM cm;
    EnterModule(cm, CmpChecksumEntry, CMPID_CmpChecksum);
    const std::string block = Inputs().back();
    for (const Family &f : kFamilies) {
        SCOPED_TRACE(f.name);
        for (const std::string &in : Inputs())
            EXPECT_EQ(Crc(f, in), ReferenceCrc(in, f.initAndXor, f.initAndXor)) << in.size();
        EXPECT_EQ(Crc(f, "123456789"), f.check);
        for (std::size_t cut : {0, 1, 255, 256, 4095}) {
            RTS_UI32 first = f.update(CRC32Init(), Bytes(block), cut);
            EXPECT_EQ(f.finish(f.update(first, Bytes(block) + cut, block.size() - cut)), Crc(f, block)) << cut;
        }
        EXPECT_EQ(f.update(0xABCDEF01u, nullptr, 10), 0xABCDEF01u) << "no data leaves the value alone";
    }
    // zlib computes the first family; the second continues a kept register.
    for (const std::string &in : Inputs()) {
        EXPECT_EQ(Crc(kFamilies[0], in), static_cast<RTS_UI32>(crc32(0, Bytes(in), static_cast<uInt>(in.size()))));
        EXPECT_EQ(CRC32Update2(0x12345678u, Bytes(in), in.size()), ReferenceCrc(in, 0x12345678u, 0));
    }
}

// Calls seen by the event callbacks.
std::vector<std::string> g_calls;

void CallbackA(EventParam *p) {
    g_calls.push_back("A:" + std::to_string(p->ulParamId) + ":" +
                      std::string(static_cast<const char *>(p->pUserParameter)));
}
void CallbackB(EventParam *p) {
    g_calls.push_back("B:" + std::to_string(p->EventId));
}
RTS_HANDLE g_late = nullptr;
void CallbackLate(EventParam *) {
    g_calls.push_back("late");
}
void CallbackRegistersAnother(EventParam *) {
    g_calls.push_back("registering");
    EventRegisterCallbackFunction(g_late, CallbackLate, nullptr);
}
void CallbackAnswers(EventParam *p) {
    auto *words = static_cast<RTS_UI32 *>(p->pParameter);
    words[2] = 7; // answer
    words[3] = 1; // handled
}

class CmpEventMgrTest : public ModuleTest<CmpEventMgrEntry, CMPID_CmpEventMgr> {
  protected:
    void Provide() override {
        g_calls.clear();
        cm_.Provide("SysMemAllocData", &SysMemAllocData);
        cm_.Provide("SysMemFreeData", &SysMemFreeData);
    }
};

TEST_F(CmpEventMgrTest, CallbacksRunInRegistrationOrderWithTheirUserParameter) {
    RTS_RESULT r = ERR_FAILED;
    RTS_HANDLE h = EventCreate(0x10006, 1, &r);
    ASSERT_EQ(r, ERR_OK);
    char user[] = "u1";
    ASSERT_EQ(EventRegisterCallbackFunction(h, CallbackB, nullptr), ERR_OK);
    ASSERT_EQ(EventRegisterCallbackFunction(h, CallbackA, user), ERR_OK);
    EXPECT_EQ(EventRegisterCallbackFunction(h, CallbackA, user), ERR_DUPLICATE);
    EXPECT_EQ(EventPost2(h, 5, 1, nullptr), ERR_OK);
    EXPECT_EQ(g_calls, (std::vector<std::string>{"B:65542", "A:5:u1"}));
    EXPECT_EQ(EventUnregisterCallbackFunction(h, CallbackB), ERR_OK);
    EXPECT_EQ(EventUnregisterCallbackFunction(h, CallbackB), ERR_NO_OBJECT);
    g_calls.clear();
    EventParam param{};
    param.ulParamId = 9;
    EXPECT_EQ(EventPost(h, &param), ERR_OK);
    EXPECT_EQ(g_calls, (std::vector<std::string>{"A:9:u1"}));
    EXPECT_EQ(EventDelete(h), ERR_OK);
}

TEST_F(CmpEventMgrTest, OperationQueryAnswersThroughTheParameterBlock) {
    RTS_HANDLE h = EventCreate(0x10006, 1, nullptr);
    RTS_UI32 block[4] = {3, 4, 0, 0};
    EXPECT_EQ(EventPost2(h, 1, 1, block), ERR_OK);
    EXPECT_EQ(block[3], 0u) << "nobody listens yet";
    EventRegisterCallbackFunction(h, CallbackAnswers, nullptr);
    EXPECT_EQ(EventPost2(h, 1, 1, block), ERR_OK);
    EXPECT_EQ(block[2], 7u);
    EXPECT_EQ(block[3], 1u);
    EventDelete(h);
}

TEST_F(CmpEventMgrTest, EventsLiveWhileReferenced) {
    RTS_RESULT r = ERR_OK;
    EXPECT_EQ(EventOpen(0x20001, 0x500, &r), RTS_INVALID_HANDLE);
    EXPECT_EQ(r, ERR_NO_OBJECT);
    RTS_HANDLE created = EventCreate(0x20001, 0x500, nullptr);
    RTS_HANDLE opened = EventOpen(0x20001, 0x500, &r);
    EXPECT_EQ(r, ERR_OK);
    EXPECT_EQ(opened, created);
    EXPECT_EQ(EventOpen(0x20001, 0x501, &r), RTS_INVALID_HANDLE) << "the provider's CmpId is part of the identity";
    EXPECT_EQ(EventCreate(0x20001, 0x500, nullptr), created) << "creating it again hands out the same event";
    EXPECT_EQ(EventDelete(created), ERR_OK);
    EXPECT_EQ(EventDelete(created), ERR_OK);
    EXPECT_EQ(EventOpen(0x20001, 0x500, nullptr), opened) << "still open once";
    EXPECT_EQ(EventClose(opened), ERR_OK);
    EXPECT_EQ(EventClose(opened), ERR_OK);
    EXPECT_EQ(EventOpen(0x20001, 0x500, &r), RTS_INVALID_HANDLE);
    EXPECT_EQ(EventClose(opened), ERR_PARAMETER) << "gone";
    EXPECT_EQ(EventPost2(opened, 0, 0, nullptr), ERR_PARAMETER);
}

TEST_F(CmpEventMgrTest, ACallbackMayRegisterDuringAPost) {
    g_late = EventCreate(0x30001, 1, nullptr);
    EventRegisterCallbackFunction(g_late, CallbackRegistersAnother, nullptr);
    EventPost2(g_late, 0, 0, nullptr);
    EXPECT_EQ(g_calls, (std::vector<std::string>{"registering"})) << "a callback added during a post runs next time";
    g_calls.clear();
    EventPost2(g_late, 0, 0, nullptr);
    EXPECT_EQ(g_calls, (std::vector<std::string>{"registering", "late"}));
    EventDelete(g_late);
}

TEST_F(CmpEventMgrTest, RecordsComeFromSysMemAndLeftoversGoAtExit) {
    RTS_SIZE before = 0, bytes = 0;
    SysMemGetAccount("CmpEventMgr", &before, nullptr);
    RTS_HANDLE h = EventCreate(0x40001, 2, nullptr);
    SysMemGetAccount("CmpEventMgr", &bytes, nullptr);
    EXPECT_GT(bytes, before);
    EXPECT_EQ(cm_.Hook(CH_EXIT), ERR_OK);
    auto lines = LogRecorder::Containing("was not deleted");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].text.find("0x00040001"), std::string::npos);
    SysMemGetAccount("CmpEventMgr", &bytes, nullptr);
    EXPECT_EQ(bytes, before);
    EXPECT_EQ(EventPost2(h, 0, 0, nullptr), ERR_PARAMETER);
}

TEST_F(CmpEventMgrTest, BadArguments) {
    RTS_HANDLE h = EventCreate(0x50001, 3, nullptr);
    EXPECT_EQ(EventRegisterCallbackFunction(h, nullptr, nullptr), ERR_PARAMETER);
    EXPECT_EQ(EventRegisterCallbackFunction(nullptr, CallbackB, nullptr), ERR_PARAMETER);
    EXPECT_EQ(EventUnregisterCallbackFunction(h, nullptr), ERR_PARAMETER);
    EXPECT_EQ(EventDelete(RTS_INVALID_HANDLE), ERR_PARAMETER);
    EXPECT_EQ(EventPost(nullptr, nullptr), ERR_PARAMETER);
    EXPECT_EQ(EventPost(h, nullptr), ERR_OK) << "a post without parameters";
    EventDelete(h);
}

} // namespace
