// Test doubles and the fixture shared by the CmpMemPool tests: recording stand-ins for the memory,
// semaphore, interrupt-lock and logger services, a fixture that enters the component through the
// stand-in component manager with a chosen set of services, and helpers that read pool structures
// without assuming their alignment.
#pragma once

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CmpMemPoolItf.h"
#include "FakeCM.h"

namespace kestrel::test::mempool {

// Which runtime services the component finds at hook 1.
struct Services {
    bool bMemory = true;
    bool bSemaphores = true;
    bool bInterrupts = false;
    bool bLog = true;
};
inline Services NoLockService() {
    return Services{true, false, false, true};
}
inline Services InterruptsOnly() {
    return Services{true, false, true, true};
}
inline Services NoMemoryService() {
    return Services{false, true, false, true};
}

// What the doubles saw, and how they answer.
struct Recorder {
    // Memory service: every live allocation with its size, and the calls made.
    std::map<void *, RTS_SIZE> live;
    std::vector<std::string> allocNames; // "<null>" for a null component name
    std::vector<RTS_SIZE> allocSizes;
    std::vector<std::string> freeNames;
    std::vector<void *> freed;
    int failAllocsAfter = -1; // number of allocations that still succeed; -1: all
    RTS_RESULT allocFailResult = ERR_NOMEMORY;
    RTS_RESULT freeResult = ERR_OK; // answered by free; nonzero: the memory is kept

    // Semaphore service: fake handles 0x5E00 + n, a trace of calls and the nesting per handle.
    std::vector<std::string> semTrace; // "create 1", "enter 1", "leave 1", "delete 1"
    std::map<RTS_HANDLE, int> semDepth;
    int semCreated = 0;
    RTS_RESULT semCreateResult = ERR_OK;
    RTS_RESULT semEnterResult = ERR_OK;
    RTS_RESULT semLeaveResult = ERR_OK;
    RTS_RESULT semDeleteResult = ERR_OK;

    // Interrupt lock: the save words handed in, and the nesting.
    std::vector<RTS_HANDLE *> intDisabled;
    std::vector<RTS_HANDLE *> intEnabled;
    int intDepth = 0;
    RTS_RESULT intResult = ERR_OK;

    // Called by every enter and leave of either lock, after the nesting changed.
    std::function<void()> onLock;

    // Logger: each call with its format and the formatted text.
    struct LogLine {
        RTS_HANDLE hLogger;
        CMPID cmpId;
        RTS_UI32 ulClass;
        RTS_RESULT errorId;
        RTS_UI32 ulInfoId;
        std::string format;
        std::string text;
    };
    std::vector<LogLine> log;

    int SemDepthTotal() const;
};
extern Recorder g_rec;

RTS_HANDLE FakeSemHandle(int n);

// Fixture: the component entered and at hook 1 with the default services (memory, semaphores,
// logger). Every test must leave no allocation behind.
class MemPoolTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    // Hook 15, then hook 1 again with another set of services.
    void Restart(const Services &services);
    // Hook 15 only: the component is not ready until the next Restart.
    void StopComponent();
    // A static pool of n blocks of size s on an aligned area that lives as long as the test.
    RTS_HANDLE StaticPool(RTS_SIZE s, RTS_SIZE n);

    kestrel::test::FakeCM cm_;
    std::vector<std::vector<unsigned char>> areas_;
};

// What a call gave back: its value and the result it stored through its last parameter.
template <typename T> struct Answer {
    T value;
    RTS_RESULT result;
};
template <typename T> Answer(T, RTS_RESULT) -> Answer<T>;
template <typename T, typename U> bool operator==(const Answer<T> &a, const Answer<U> &b) {
    return a.value == b.value && a.result == b.result;
}
template <typename T> void PrintTo(const Answer<T> &a, std::ostream *os) {
    *os << ::testing::PrintToString(a.value) << " with result " << a.result;
}
// Calls fn(args..., &result), with result preset to a value that no function answers.
template <typename F, typename... A> auto Call(F fn, A... args) {
    RTS_RESULT result = 0xBADC0DE;
    auto value = fn(args..., &result);
    return Answer<decltype(value)>{value, result};
}

// How a test reaches MemPoolGetBlock and MemPoolPutBlock: as the C functions that a linked-in
// caller calls, or as the component's export table offers them to every other component (forms
// compiled for the processor, where it has wider stores). Both must behave alike in every way.
enum class BlockCaller { Linked, Imported };
struct BlockFunctions {
    decltype(&MemPoolGetBlock) pfGet;
    decltype(&MemPoolPutBlock) pfPut;
};
BlockFunctions BlockFunctionsFor(FakeCM &cm, BlockCaller caller);
std::string BlockCallerName(const ::testing::TestParamInfo<BlockCaller> &info);

// A fixture run once per BlockCaller, with calls_ holding get and put as that caller reaches them.
template <typename Fixture> class WithBlockCaller : public Fixture, public ::testing::WithParamInterface<BlockCaller> {
  protected:
    void SetUp() override {
        Fixture::SetUp();
        calls_ = BlockFunctionsFor(this->cm_, this->GetParam());
        ASSERT_NE(calls_.pfGet, nullptr);
        ASSERT_NE(calls_.pfPut, nullptr);
    }

    BlockFunctions calls_{};
};
#define KESTREL_FOR_EACH_BLOCK_CALLER(Fixture)                                                                         \
    INSTANTIATE_TEST_SUITE_P(Callers, Fixture, ::testing::Values(BlockCaller::Linked, BlockCaller::Imported),          \
                             BlockCallerName)

// Copies of pool structures read byte-wise, so that tests never assume the alignment of a control
// block (a static pool of block size 0 keeps it where the caller's area starts).
inline MEMPOOL_PCB PcbCopy(RTS_HANDLE hPool) {
    MEMPOOL_PCB pcb;
    std::memcpy(&pcb, hPool, sizeof pcb);
    return pcb;
}
inline MEMPOOL_BLOCK *HeaderOf(void *pPayload) {
    return reinterpret_cast<MEMPOOL_BLOCK *>(static_cast<unsigned char *>(pPayload) - MEMPOOL_BLOCK_HEADER_SIZE);
}
// Takes every free block (MemPoolGetBlock until it fails) and returns the payloads in order.
inline std::vector<void *> Drain(RTS_HANDLE hPool) {
    std::vector<void *> blocks;
    while (void *p = MemPoolGetBlock(hPool, nullptr))
        blocks.push_back(p);
    return blocks;
}
// The used list of a pool as payload pointers, walked with MemPoolGetFirstBlock/GetNextBlock.
inline std::vector<void *> UsedList(RTS_HANDLE hPool) {
    std::vector<void *> blocks;
    RTS_RESULT result = ERR_FAILED;
    for (void *p = MemPoolGetFirstBlock(hPool, &result); p != nullptr; p = MemPoolGetNextBlock(hPool, p, &result))
        blocks.push_back(p);
    return blocks;
}
// True when all n bytes at p equal value.
inline bool AllBytes(const void *p, RTS_SIZE n, unsigned char value) {
    const auto *bytes = static_cast<const unsigned char *>(p);
    return std::all_of(bytes, bytes + n, [value](unsigned char b) { return b == value; });
}
// Round up to the pool alignment, as the component does.
inline RTS_SIZE Aligned(RTS_SIZE s) {
    return MEMPOOL_ALIGN_SIZE(s);
}
inline RTS_SIZE Stride(RTS_SIZE s) {
    return Aligned(s) + MEMPOOL_BLOCK_HEADER_SIZE;
}
// The first address at or behind p that is aligned to the pool alignment.
inline unsigned char *AlignedStart(unsigned char *p) {
    return p + (Aligned(reinterpret_cast<RTS_UINTPTR>(p)) - reinterpret_cast<RTS_UINTPTR>(p));
}

} // namespace kestrel::test::mempool
