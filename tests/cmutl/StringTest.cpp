// Tests of the dynamic strings (CMSTRING): inline and heap texts, extension,
// deletion, and every call into the memory service, observed through a
// counting allocator installed with CMUtlSetMemoryService.
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "CMUtlServices.h"

namespace {

// The memory service as the tests see it: it counts calls, remembers the
// component name and the live blocks, and can be told to fail.
struct CountingAllocator {
    enum class Mode { Normal, ReturnNull, ReturnBlockWithError };
    static inline Mode mode = Mode::Normal;
    static inline int allocs = 0;
    static inline int frees = 0;
    static inline RTS_SIZE lastSize = 0;
    static inline std::string lastAllocName;
    static inline std::string lastFreeName;
    static inline void *lastFreed = nullptr;
    static inline std::map<void *, RTS_SIZE> live;

    static void Reset() {
        mode = Mode::Normal;
        allocs = frees = 0;
        lastSize = 0;
        lastAllocName.clear();
        lastFreeName.clear();
        lastFreed = nullptr;
        live.clear();
    }
    static void *Alloc(const char *name, RTS_SIZE size, RTS_RESULT *pResult) {
        ++allocs;
        lastSize = size;
        lastAllocName = name != nullptr ? name : "<null>";
        if (mode == Mode::ReturnNull) {
            *pResult = ERR_NOMEMORY;
            return nullptr;
        }
        void *p = std::malloc(size);
        live[p] = size;
        *pResult = mode == Mode::ReturnBlockWithError ? ERR_FAILED : ERR_OK;
        return p;
    }
    static RTS_RESULT Free(const char *name, void *p) {
        ++frees;
        lastFreeName = name != nullptr ? name : "<null>";
        lastFreed = p;
        EXPECT_EQ(live.erase(p), 1u) << "freed a block that was not allocated";
        std::free(p);
        return ERR_OK;
    }
};

class CMStringTest : public ::testing::Test {
  protected:
    void SetUp() override {
        CountingAllocator::Reset();
        CMUtlSetMemoryService(&CountingAllocator::Alloc, &CountingAllocator::Free);
    }
    void TearDown() override {
        CMUtlSetMemoryService(nullptr, nullptr);
        EXPECT_TRUE(CountingAllocator::live.empty()) << "blocks leaked";
        for (auto &[p, size] : CountingAllocator::live) {
            std::free(p);
        }
    }
};

bool IsZeroed(const CMSTRING &s) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(&s);
    for (std::size_t i = 0; i < sizeof s; ++i) {
        if (bytes[i] != 0) {
            return false;
        }
    }
    return true;
}

TEST(CMStringLayout, BufferSizeAndFlagsFollowTheThirtyTwoByteBuffer) {
    EXPECT_EQ(offsetof(CMSTRING, ulSize), CMSTRING_INLINE_SIZE);
    EXPECT_EQ(offsetof(CMSTRING, ulFlags), CMSTRING_INLINE_SIZE + 4);
    EXPECT_EQ(sizeof(CMSTRING), CMSTRING_INLINE_SIZE + 8);
}

TEST_F(CMStringTest, ShortTextsStayInline) {
    // Up to 31 characters: the text and its terminator fill at most the 32 bytes.
    for (std::size_t length : {0u, 1u, 16u, 31u}) {
        const std::string text(length, 'q');
        CMSTRING s;
        std::memset(&s, 0xCC, sizeof s);
        EXPECT_EQ(CMStringCreate(&s, "CmpTest", text.c_str()), ERR_OK);
        EXPECT_EQ(s.ulFlags, CMSTRING_FLAG_INLINE | CMSTRING_FLAG_INITIALIZED);
        EXPECT_EQ(s.ulSize, CMSTRING_INLINE_SIZE);
        EXPECT_EQ(CMStringGetText(&s), s.buffer.inline_);
        EXPECT_EQ(std::string(CMStringGetText(&s)), text);
        EXPECT_EQ(CMStringDelete(&s, "CmpTest"), ERR_OK);
        EXPECT_TRUE(IsZeroed(s));
    }
    EXPECT_EQ(CountingAllocator::allocs, 0);
    EXPECT_EQ(CountingAllocator::frees, 0);
}

TEST_F(CMStringTest, LongerTextsGoToTheHeap) {
    // From 32 characters the text and its terminator go to a heap block of exactly that size.
    for (std::size_t length : {32u, 33u, 200u}) {
        const std::string text(length, 'z');
        CMSTRING s;
        CountingAllocator::allocs = 0;
        EXPECT_EQ(CMStringCreate(&s, "CmpTest", text.c_str()), ERR_OK);
        EXPECT_EQ(CountingAllocator::allocs, 1);
        EXPECT_EQ(CountingAllocator::lastSize, length + 1);
        EXPECT_EQ(CountingAllocator::lastAllocName, "CmpTest");
        EXPECT_EQ(s.ulFlags, CMSTRING_FLAG_HEAP | CMSTRING_FLAG_INITIALIZED);
        EXPECT_EQ(s.ulSize, length + 1);
        EXPECT_EQ(CMStringGetText(&s), s.buffer.pHeap);
        EXPECT_EQ(std::string(CMStringGetText(&s)), text);
        void *block = s.buffer.pHeap;
        EXPECT_EQ(CountingAllocator::live.count(block), 1u);
        EXPECT_EQ(CMStringDelete(&s, "CmpOther"), ERR_OK);
        EXPECT_EQ(CountingAllocator::lastFreeName, "CmpOther");
        EXPECT_EQ(CountingAllocator::lastFreed, block);
        EXPECT_TRUE(IsZeroed(s));
    }
    EXPECT_EQ(CountingAllocator::frees, 3);
}

TEST_F(CMStringTest, CreateFailures) {
    const std::string text(40, 'x');
    CMSTRING s;
    EXPECT_EQ(CMStringCreate(nullptr, "CmpTest", "a"), ERR_PARAMETER);
    EXPECT_EQ(CMStringCreate(&s, "CmpTest", nullptr), ERR_PARAMETER);

    CountingAllocator::mode = CountingAllocator::Mode::ReturnNull;
    EXPECT_EQ(CMStringCreate(&s, "CmpTest", text.c_str()), ERR_NOMEMORY);
    EXPECT_EQ(s.ulFlags, 0u);
    // A block that comes with an error result is not kept (and not leaked).
    CountingAllocator::mode = CountingAllocator::Mode::ReturnBlockWithError;
    EXPECT_EQ(CMStringCreate(&s, "CmpTest", text.c_str()), ERR_NOMEMORY);
    EXPECT_EQ(CountingAllocator::frees, 1);
    EXPECT_EQ(s.ulFlags, 0u);
    // Without a memory service only inline texts can be made.
    CMUtlSetMemoryService(nullptr, nullptr);
    EXPECT_EQ(CMStringCreate(&s, "CmpTest", text.c_str()), ERR_NOMEMORY);
    EXPECT_EQ(CMStringCreate(&s, "CmpTest", "short"), ERR_OK);
    EXPECT_STREQ(CMStringGetText(&s), "short");
}

TEST_F(CMStringTest, DeleteHandlesNullAndAMissingFreeService) {
    EXPECT_EQ(CMStringDelete(nullptr, "CmpTest"), ERR_PARAMETER);
    const std::string text(40, 'x');
    CMSTRING s;
    ASSERT_EQ(CMStringCreate(&s, "CmpTest", text.c_str()), ERR_OK);
    void *block = s.buffer.pHeap;
    CMUtlSetMemoryService(&CountingAllocator::Alloc, nullptr);
    EXPECT_EQ(CMStringDelete(&s, "CmpTest"), ERR_OK); // nothing to free with: the block stays
    EXPECT_TRUE(IsZeroed(s));
    EXPECT_EQ(CountingAllocator::frees, 0);
    EXPECT_EQ(CountingAllocator::live.count(block), 1u);
    CountingAllocator::Free("CmpTest", block);
}

TEST_F(CMStringTest, ExtendAllocatesAFreshBuffer) {
    CMSTRING s;
    ASSERT_EQ(CMStringCreate(&s, "CmpTest", "inline"), ERR_OK);
    // Not larger than the current capacity: nothing happens.
    EXPECT_EQ(CMStringExtend(&s, "CmpTest", 32), ERR_OK);
    EXPECT_EQ(CMStringExtend(&s, "CmpTest", 10), ERR_OK);
    EXPECT_EQ(CountingAllocator::allocs, 0);
    EXPECT_STREQ(CMStringGetText(&s), "inline");

    EXPECT_EQ(CMStringExtend(&s, "CmpTest", 100), ERR_OK);
    EXPECT_EQ(CountingAllocator::allocs, 1);
    EXPECT_EQ(CountingAllocator::lastSize, 100u);
    EXPECT_EQ(s.ulSize, 100u);
    EXPECT_EQ(s.ulFlags, CMSTRING_FLAG_HEAP | CMSTRING_FLAG_INITIALIZED);
    EXPECT_EQ(CMStringGetText(&s), s.buffer.pHeap);
    void *first = s.buffer.pHeap;
    std::strcpy(CMStringGetText(&s), "filled again by the caller");

    // Growing a heap text frees the old block before taking the new one.
    EXPECT_EQ(CMStringExtend(&s, "CmpTest", 200), ERR_OK);
    EXPECT_EQ(CountingAllocator::frees, 1);
    EXPECT_EQ(CountingAllocator::lastFreed, first);
    EXPECT_EQ(CountingAllocator::allocs, 2);
    EXPECT_EQ(s.ulSize, 200u);
    EXPECT_EQ(CMStringDelete(&s, "CmpTest"), ERR_OK);
    EXPECT_EQ(CountingAllocator::frees, 2);
}

TEST_F(CMStringTest, ExtendFailures) {
    EXPECT_EQ(CMStringExtend(nullptr, "CmpTest", 100), ERR_PARAMETER);

    CMSTRING s;
    ASSERT_EQ(CMStringCreate(&s, "CmpTest", "inline"), ERR_OK);
    CountingAllocator::mode = CountingAllocator::Mode::ReturnNull;
    EXPECT_EQ(CMStringExtend(&s, "CmpTest", 100), ERR_NOMEMORY);
    EXPECT_STREQ(CMStringGetText(&s), "inline"); // an inline text survives a failed extension
    EXPECT_EQ(s.ulSize, CMSTRING_INLINE_SIZE);

    CountingAllocator::mode = CountingAllocator::Mode::Normal;
    const std::string text(40, 'x');
    ASSERT_EQ(CMStringCreate(&s, "CmpTest", text.c_str()), ERR_OK);
    CountingAllocator::mode = CountingAllocator::Mode::ReturnNull;
    EXPECT_EQ(CMStringExtend(&s, "CmpTest", 100), ERR_NOMEMORY);
    // The old block was given back before the allocation failed.
    EXPECT_EQ(CountingAllocator::frees, 1);
    EXPECT_EQ(s.ulSize, 0u);
    EXPECT_EQ(s.buffer.pHeap, nullptr);
    EXPECT_EQ(CMStringDelete(&s, "CmpTest"), ERR_OK);
    EXPECT_EQ(CountingAllocator::frees, 1);
}

TEST(CMStringGetText, NullGivesNull) {
    EXPECT_EQ(CMStringGetText(nullptr), nullptr);
}

} // namespace
