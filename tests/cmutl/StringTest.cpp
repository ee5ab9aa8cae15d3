// Tests of the dynamic strings (CMSTRING): inline and heap texts, extension, deletion, and every
// call into the memory service, traced by a test allocator.
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "CMUtlServices.h"

namespace {

using Trace = std::vector<std::string>;

// The memory service as the tests see it: it traces its calls ("alloc <name> <size>", "free
// <name>"), keeps the live blocks (a free of any other pointer fails the test) and can be told to
// fail.
struct Allocator {
    enum class Mode { Normal, ReturnNull, ReturnBlockWithError };
    static inline Mode mode = Mode::Normal;
    static inline Trace trace;
    static inline std::set<void *> live;

    static void *Alloc(const char *name, RTS_SIZE size, RTS_RESULT *pResult) {
        trace.push_back("alloc " + std::string(name) + ' ' + std::to_string(size));
        *pResult = mode == Mode::Normal ? ERR_OK : (mode == Mode::ReturnNull ? ERR_NOMEMORY : ERR_FAILED);
        return mode == Mode::ReturnNull ? nullptr : *live.insert(std::malloc(size)).first;
    }
    static RTS_RESULT Free(const char *name, void *p) {
        trace.push_back("free " + std::string(name));
        if (live.erase(p) == 1) {
            std::free(p);
        } else {
            ADD_FAILURE() << "freed a block that was not allocated";
        }
        return ERR_OK;
    }
};

class CMStringTest : public ::testing::Test {
  protected:
    void SetUp() override {
        Allocator::mode = Allocator::Mode::Normal;
        Allocator::trace.clear();
        CMUtlSetMemoryService(&Allocator::Alloc, &Allocator::Free);
    }
    void TearDown() override {
        CMUtlSetMemoryService(nullptr, nullptr);
        EXPECT_TRUE(Allocator::live.empty()) << "blocks leaked";
        for (void *p : Allocator::live) {
            std::free(p);
        }
        Allocator::live.clear();
    }
    const std::string long_ = std::string(40, 'x');
};

bool IsZeroed(const CMSTRING &s) {
    const CMSTRING zero{};
    return std::memcmp(&s, &zero, sizeof s) == 0;
}

// A null record is 1 (null for the text).
TEST(CMString, NullRecords) {
    EXPECT_EQ(CMStringCreate(nullptr, "CmpTest", "a"), ERR_PARAMETER);
    EXPECT_EQ(CMStringDelete(nullptr, "CmpTest"), ERR_PARAMETER);
    EXPECT_EQ(CMStringExtend(nullptr, "CmpTest", 100), ERR_PARAMETER);
    EXPECT_EQ(CMStringGetText(nullptr), nullptr);
}

// Up to 31 characters the text stays in the record; from 32 on it and its terminator go to a heap
// block of exactly that size, taken and given back under the names passed. Delete zeroes the record.
TEST_F(CMStringTest, ShortTextsInlineLongerOnesOnTheHeap) {
    for (std::size_t length : {0u, 31u, 32u, 200u}) {
        const std::string text(length, 'q');
        const bool heap = length >= 32;
        CMSTRING s;
        std::memset(&s, 0xCC, sizeof s);
        Allocator::trace.clear();
        EXPECT_EQ(CMStringCreate(&s, "CmpTest", text.c_str()), ERR_OK);
        EXPECT_EQ(s.ulFlags, (heap ? CMSTRING_FLAG_HEAP : CMSTRING_FLAG_INLINE) | CMSTRING_FLAG_INITIALIZED);
        EXPECT_EQ(s.ulSize, heap ? length + 1 : CMSTRING_INLINE_SIZE);
        EXPECT_EQ(CMStringGetText(&s), heap ? s.buffer.pHeap : s.buffer.inline_);
        EXPECT_EQ(std::string(CMStringGetText(&s)), text);
        EXPECT_EQ(CMStringDelete(&s, "CmpOther"), ERR_OK);
        EXPECT_TRUE(IsZeroed(s));
        EXPECT_EQ(Allocator::trace,
                  heap ? (Trace{"alloc CmpTest " + std::to_string(length + 1), "free CmpOther"}) : Trace{});
    }
}

// A failed allocation, or a block that comes with an error result (given back, not leaked), is
// out of memory; without a memory service only inline texts can be made.
TEST_F(CMStringTest, CreateFailures) {
    CMSTRING s;
    EXPECT_EQ(CMStringCreate(&s, "CmpTest", nullptr), ERR_PARAMETER);
    for (Allocator::Mode mode : {Allocator::Mode::ReturnNull, Allocator::Mode::ReturnBlockWithError}) {
        Allocator::mode = mode;
        EXPECT_EQ(CMStringCreate(&s, "CmpTest", long_.c_str()), ERR_NOMEMORY);
        EXPECT_EQ(s.ulFlags, 0u);
    }
    EXPECT_EQ(Allocator::trace, (Trace{"alloc CmpTest 41", "alloc CmpTest 41", "free CmpTest"}));
    CMUtlSetMemoryService(nullptr, nullptr);
    EXPECT_EQ(CMStringCreate(&s, "CmpTest", long_.c_str()), ERR_NOMEMORY);
    EXPECT_EQ(CMStringCreate(&s, "CmpTest", "short"), ERR_OK);
    EXPECT_STREQ(CMStringGetText(&s), "short");
}

// Without a free function the block stays where it is (the test gives it back).
TEST_F(CMStringTest, DeleteWithoutAFreeService) {
    CMSTRING s;
    ASSERT_EQ(CMStringCreate(&s, "CmpTest", long_.c_str()), ERR_OK);
    void *block = s.buffer.pHeap;
    CMUtlSetMemoryService(&Allocator::Alloc, nullptr);
    EXPECT_EQ(CMStringDelete(&s, "CmpTest"), ERR_OK);
    EXPECT_TRUE(IsZeroed(s));
    Allocator::Free("test", block);
    EXPECT_EQ(Allocator::trace, (Trace{"alloc CmpTest 41", "free test"}));
}

// Not beyond the capacity: nothing happens. Beyond it: a fresh heap block, the old one freed first,
// the text not carried over. A failed extension leaves an inline text as it was; a heap text has
// lost its block already.
TEST_F(CMStringTest, Extend) {
    CMSTRING s;
    ASSERT_EQ(CMStringCreate(&s, "CmpTest", "inline"), ERR_OK);
    EXPECT_EQ(CMStringExtend(&s, "CmpTest", 32), ERR_OK);
    Allocator::mode = Allocator::Mode::ReturnNull;
    EXPECT_EQ(CMStringExtend(&s, "CmpTest", 100), ERR_NOMEMORY);
    EXPECT_STREQ(CMStringGetText(&s), "inline");
    EXPECT_EQ(s.ulSize, CMSTRING_INLINE_SIZE);
    Allocator::mode = Allocator::Mode::Normal;
    EXPECT_EQ(CMStringExtend(&s, "CmpTest", 100), ERR_OK);
    EXPECT_EQ(s.ulSize, 100u);
    EXPECT_EQ(s.ulFlags, CMSTRING_FLAG_HEAP | CMSTRING_FLAG_INITIALIZED);
    EXPECT_EQ(CMStringGetText(&s), s.buffer.pHeap);
    EXPECT_EQ(CMStringExtend(&s, "CmpExt", 200), ERR_OK);
    EXPECT_EQ(s.ulSize, 200u);
    Allocator::mode = Allocator::Mode::ReturnNull;
    EXPECT_EQ(CMStringExtend(&s, "CmpTest", 300), ERR_NOMEMORY);
    EXPECT_EQ(s.ulSize, 0u);
    EXPECT_EQ(s.buffer.pHeap, nullptr);
    EXPECT_EQ(CMStringDelete(&s, "CmpTest"), ERR_OK);
    EXPECT_EQ(Allocator::trace, (Trace{"alloc CmpTest 100", "alloc CmpTest 100", "free CmpExt", "alloc CmpExt 200",
                                       "free CmpTest", "alloc CmpTest 300"}));
}

} // namespace
