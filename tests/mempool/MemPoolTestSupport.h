// Test doubles and the fixture shared by the CmpMemPool tests: recording stand-ins for the memory,
// lock and logger services, a fixture that enters the component through the stand-in component
// manager with a chosen set of services, and helpers that read pool structures.
#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "CmpMemPoolItf.h"
#include "FakeCM.h"

namespace kestrel::test::mempool {

using Strings = std::vector<std::string>;
using Results = std::vector<RTS_RESULT>;
using Blocks = std::vector<void *>;
using Sizes = std::vector<RTS_SIZE>;

// Which runtime services the component finds at hook 1 (bits).
enum Services : unsigned { kMemory = 1, kSemaphores = 2, kInterrupts = 4, kLog = 8, kDefault = 11, kAll = 15 };

// What the doubles saw, and how they answer.
struct Recorder {
    // Memory service: live allocations with their sizes, and the calls ("<null>" for no name).
    std::map<void *, RTS_SIZE> live;
    Strings allocNames, freeNames;
    Sizes allocSizes;
    Blocks freed;
    bool bFailAllocs = false;
    RTS_RESULT allocFailResult = ERR_NOMEMORY;
    RTS_RESULT freeResult = ERR_OK; // nonzero: the memory is kept
    // Lock services: "create 1", "enter 1", "leave 1", "delete 1" for the semaphores 0x5E00 + n,
    // "disable" and "enable" for the interrupt lock (its save words in intWords); the nesting of
    // both; the result of every call; a callback after every enter and leave.
    Strings trace;
    std::vector<RTS_HANDLE *> intWords;
    int semCreated = 0;
    int depth = 0;
    RTS_RESULT lockResult = ERR_OK;
    std::function<void()> onLock;
    // Logger: "<logger> <cmpId> <class> <error> <info> <text>" per call.
    Strings log;
};
inline Recorder g_rec;

inline RTS_HANDLE FakeSemHandle(int n) {
    return reinterpret_cast<RTS_HANDLE>(static_cast<RTS_UINTPTR>(0x5E00 + n));
}

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

// The doubles of the imported services.
struct Doubles {
    static std::string Name(const char *psz) { return psz != nullptr ? psz : "<null>"; }
    static void *AllocData(const char *pszComponentName, RTS_SIZE ulSize, RTS_RESULT *pResult) {
        g_rec.allocNames.push_back(Name(pszComponentName));
        g_rec.allocSizes.push_back(ulSize);
        // Sizes no test means to get are refused like an exhausted heap.
        const bool bFail = g_rec.bFailAllocs || ulSize > (RTS_SIZE{1} << 28);
        if (pResult != nullptr)
            *pResult = bFail ? g_rec.allocFailResult : ERR_OK;
        if (bFail)
            return nullptr;
        // Never zero: the component must clear or fill what it promises to.
        void *p = std::malloc(ulSize != 0 ? ulSize : 1);
        std::memset(p, 0x5A, ulSize);
        g_rec.live[p] = ulSize;
        return p;
    }
    static RTS_RESULT FreeData(const char *pszComponentName, void *pData) {
        g_rec.freeNames.push_back(Name(pszComponentName));
        g_rec.freed.push_back(pData);
        if (g_rec.freeResult != ERR_OK)
            return g_rec.freeResult;
        if (g_rec.live.erase(pData) == 0) {
            ADD_FAILURE() << "SysMemFreeData of memory that was not allocated: " << pData;
            return ERR_PARAMETER;
        }
        std::free(pData);
        return ERR_OK;
    }
    // Every call of a lock service: its trace entry, how it changes the nesting, and the save word
    // of the interrupt lock.
    static RTS_RESULT Lock(const std::string &call, RTS_HANDLE hSem, int depthChange, RTS_HANDLE *phSave = nullptr) {
        const long long n = static_cast<long long>(reinterpret_cast<RTS_UINTPTR>(hSem)) - 0x5E00;
        g_rec.trace.push_back(hSem != nullptr ? call + " " + std::to_string(n) : call);
        if (phSave != nullptr)
            g_rec.intWords.push_back(phSave);
        g_rec.depth += depthChange;
        if (depthChange != 0 && g_rec.onLock)
            g_rec.onLock();
        return g_rec.lockResult;
    }
    static RTS_HANDLE SemCreate(RTS_RESULT *pResult) {
        RTS_HANDLE h = FakeSemHandle(++g_rec.semCreated);
        *pResult = Lock("create", h, 0);
        return h;
    }
    static RTS_RESULT SemEnter(RTS_HANDLE h) { return Lock("enter", h, 1); }
    static RTS_RESULT SemLeave(RTS_HANDLE h) { return Lock("leave", h, -1); }
    static RTS_RESULT SemDelete(RTS_HANDLE h) { return Lock("delete", h, 0); }
    static RTS_RESULT IntDisableAll(RTS_HANDLE *phSave) { return Lock("disable", nullptr, 1, phSave); }
    static RTS_RESULT IntEnableAll(RTS_HANDLE *phSave) { return Lock("enable", nullptr, -1, phSave); }
    static RTS_RESULT LogAdd(RTS_HANDLE hLogger, CMPID cmpId, RTS_UI32 ulClassId, RTS_RESULT errorId, RTS_UI32 ulInfoId,
                             const char *pszInfo, ...) {
        char text[512], line[600];
        va_list args;
        va_start(args, pszInfo);
        std::vsnprintf(text, sizeof text, pszInfo, args);
        va_end(args);
        std::snprintf(line, sizeof line, "%llx %u %u %u %u %s",
                      static_cast<unsigned long long>(reinterpret_cast<RTS_UINTPTR>(hLogger)), unsigned{cmpId},
                      unsigned{ulClassId}, unsigned{errorId}, unsigned{ulInfoId}, text);
        g_rec.log.push_back(line);
        return ERR_OK;
    }
    template <typename F> static RTS_VOID_FCTPTR Fn(F *fn) { return reinterpret_cast<RTS_VOID_FCTPTR>(fn); }
};

// Fixture: the component entered and at hook 1 with the default services, and readers of pool
// structures. No test may leave an allocation behind or a lock held.
class MemPoolTest : public ::testing::Test {
  protected:
    void SetUp() override {
        g_rec = Recorder{};
        ASSERT_EQ(cm_.Enter(&CmpMemPoolEntry), ERR_OK);
        Restart(kDefault);
    }
    void TearDown() override {
        cm_.Hook(CH_EXIT2);
        EXPECT_EQ(g_rec.depth, 0) << "a pool lock left held";
        EXPECT_TRUE(g_rec.live.empty()) << g_rec.live.size() << " allocation(s) left behind";
        for (auto &entry : g_rec.live)
            std::free(entry.first);
        g_rec.live.clear();
    }
    // Hook 15, then hook 1 again with the services chosen.
    void Restart(unsigned services) {
        cm_.Hook(CH_EXIT2);
        using D = Doubles;
        const std::tuple<const char *, RTS_VOID_FCTPTR, unsigned> imports[] = {
            {"LogAdd", D::Fn(&D::LogAdd), kLog},
            {"SysMemAllocData", D::Fn(&D::AllocData), kMemory},
            {"SysMemFreeData", D::Fn(&D::FreeData), kMemory},
            {"SysSemCreate", D::Fn(&D::SemCreate), kSemaphores},
            {"SysSemEnter", D::Fn(&D::SemEnter), kSemaphores},
            {"SysSemLeave", D::Fn(&D::SemLeave), kSemaphores},
            {"SysSemDelete", D::Fn(&D::SemDelete), kSemaphores},
            {"SysIntDisableAll", D::Fn(&D::IntDisableAll), kInterrupts},
            {"SysIntEnableAll", D::Fn(&D::IntEnableAll), kInterrupts},
        };
        for (const auto &[name, fn, service] : imports) {
            cm_.Withdraw(name);
            if ((services & service) != 0)
                cm_.Provide(name, fn);
        }
        ASSERT_EQ(cm_.Hook(CH_INIT), ERR_OK);
    }
    // A static pool of n blocks of size s on an aligned area that lives as long as the test.
    RTS_HANDLE StaticPool(RTS_SIZE s, RTS_SIZE n) {
        areas_.emplace_back(MEMPOOL_STATIC_AREA_SIZE(s, n) + MEMPOOL_ALIGN);
        const auto answer =
            Call(MemPoolCreateStatic, s, MEMPOOL_STATIC_AREA_SIZE(s, n), AlignedStart(areas_.back().data()));
        EXPECT_EQ(answer.result, ERR_OK) << s << " " << n;
        return answer.value;
    }

    static MEMPOOL_PCB *Pcb(RTS_HANDLE h) { return static_cast<MEMPOOL_PCB *>(h); }
    static MEMPOOL_BLOCK *HeaderOf(void *p) { return reinterpret_cast<MEMPOOL_BLOCK *>(Bytes(p) - kHeader); }
    static unsigned char *Bytes(void *p) { return static_cast<unsigned char *>(p); }
    static RTS_SIZE Aligned(RTS_SIZE s) { return MEMPOOL_ALIGN_SIZE(s); }
    static RTS_SIZE Stride(RTS_SIZE s) { return Aligned(s) + kHeader; }
    // The first address at or behind p that is aligned to the pool alignment.
    static unsigned char *AlignedStart(void *p) {
        return Bytes(p) + (-reinterpret_cast<RTS_UINTPTR>(p) & (MEMPOOL_ALIGN - 1));
    }
    static bool AllBytes(const void *p, RTS_SIZE n, unsigned char value) {
        return std::all_of(static_cast<const unsigned char *>(p), static_cast<const unsigned char *>(p) + n,
                           [value](unsigned char b) { return b == value; });
    }
    // Takes every free block (MemPoolGetBlock until it fails) and returns the payloads in order.
    static Blocks Drain(RTS_HANDLE hPool) {
        Blocks blocks;
        while (void *p = MemPoolGetBlock(hPool, nullptr))
            blocks.push_back(p);
        return blocks;
    }
    // The used list as payload pointers, walked with MemPoolGetFirstBlock/GetNextBlock.
    static Blocks UsedList(RTS_HANDLE hPool) {
        Blocks blocks;
        for (void *p = MemPoolGetFirstBlock(hPool, nullptr); p; p = MemPoolGetNextBlock(hPool, p, nullptr))
            blocks.push_back(p);
        return blocks;
    }

    static constexpr RTS_SIZE kHeader = MEMPOOL_BLOCK_HEADER_SIZE;
    kestrel::test::FakeCM cm_;
    std::vector<std::vector<unsigned char>> areas_;
};

} // namespace kestrel::test::mempool
