// The basic platform checks over this build and over altered measurements, and the sizes of the
// CM's static pools, which hold the same number of records on every build.
#include <string>
#include <vector>

#include "CMBasicChecks.h"
#include "CMTestFixture.h"

using namespace kestrel::cmtest;
using kestrel::cm::BasicCheckPlatform;
using kestrel::cm::RunBasicChecks;
using kestrel::cm::ThisPlatform;
using kestrel::cm::TypeSizeRow;
using ::testing::ElementsAre;

namespace {

class BasicChecksTest : public CMTest {
  protected:
    void SetUp() override {
        CMTest::SetUp();
        ASSERT_EQ(ERR_OK, Start({}));
        F().log.clear();
    }

    // This build's measurements with one type size replaced.
    BasicCheckPlatform WithTypeSize(RTS_UI32 ulInfoId, RTS_SIZE measured) {
        const BasicCheckPlatform &base = ThisPlatform();
        rows_.assign(base.pRows, base.pRows + base.nRows);
        for (TypeSizeRow &row : rows_)
            if (row.ulInfoId == ulInfoId)
                row.measured = measured;
        BasicCheckPlatform platform = base;
        platform.pRows = rows_.data();
        return platform;
    }

    static std::vector<RTS_UI32> FailedInfoIds() {
        std::vector<RTS_UI32> ids;
        for (const LogLine &line : F().log) {
            EXPECT_EQ(LOG_ERROR, line.ulClass);
            EXPECT_EQ(ERR_FAILED, line.errorId);
            EXPECT_EQ(CMPID_CM, line.cmpId);
            EXPECT_EQ(0u, line.text.find("<cmp>CMBasicChecks</cmp>: ")) << line.text;
            ids.push_back(line.ulInfoId);
        }
        return ids;
    }

    std::vector<TypeSizeRow> rows_;
};

TEST_F(BasicChecksTest, ThisBuildPasses) {
    EXPECT_EQ(1, CMBasicChecks());
    EXPECT_TRUE(F().log.empty());
}

// Pointer-sized types must have the build's pointer size: 4 bytes on the 32-bit build.
TEST_F(BasicChecksTest, PointerSizedRowsFollowTheBuild) {
    const BasicCheckPlatform &platform = ThisPlatform();
    ASSERT_EQ(10u, platform.nRows);
    std::vector<RTS_UI32> order;
    for (std::size_t i = 0; i < platform.nRows; ++i) {
        order.push_back(platform.pRows[i].ulInfoId);
        if (platform.pRows[i].ulInfoId == 67 || platform.pRows[i].ulInfoId == 68) {
            EXPECT_EQ(sizeof(void *), platform.pRows[i].required);
        }
    }
    EXPECT_THAT(order, ElementsAre(73u, 54u, 55u, 56u, 57u, 58u, 61u, 67u, 68u, 59u));
}

struct SizeCase {
    RTS_UI32 ulInfoId;
    RTS_SIZE measured;
    RTS_I32 expected;
    const char *pszMessage; // null: nothing logged
};

class TypeSizeTest : public BasicChecksTest, public ::testing::WithParamInterface<SizeCase> {};

TEST_P(TypeSizeTest, Sizes) {
    const SizeCase &c = GetParam();
    EXPECT_EQ(c.expected, RunBasicChecks(WithTypeSize(c.ulInfoId, c.measured)));
    if (c.pszMessage == nullptr) {
        EXPECT_TRUE(F().log.empty());
    } else {
        ASSERT_EQ(1u, F().log.size());
        EXPECT_EQ(c.pszMessage, F().log[0].text);
        EXPECT_EQ(c.ulInfoId, F().log[0].ulInfoId);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TypeSizeTest,
    ::testing::Values(
        SizeCase{59, 2, 1, nullptr}, SizeCase{59, 8, 1, nullptr},
        SizeCase{59, 1, 0, "<cmp>CMBasicChecks</cmp>: sizeof(RTS_RESULT) is <size>1</size> instead of 2 byte"},
        SizeCase{61, 4, 0, "<cmp>CMBasicChecks</cmp>: sizeof(RTS_WCHAR) is <size>4</size> instead of 2 byte"},
        SizeCase{55, 8, 0, "<cmp>CMBasicChecks</cmp>: sizeof(RTS_I32) is <size>8</size> instead of 4 byte"},
        SizeCase{73, 2, 0, "<cmp>CMBasicChecks</cmp>: sizeof(RTS_I8) is <size>2</size> instead of 1 byte"}));

void BrokenSwap16(void *pBuffer, RTS_UI16 value) {
    auto *b = static_cast<unsigned char *>(pBuffer);
    b[0] = static_cast<unsigned char>(value >> 8);
    b[1] = static_cast<unsigned char>(value);
}
void BrokenSwap32s(void *, RTS_I32) {}

// A failing size check does not stop the others: every failure is logged.
TEST_F(BasicChecksTest, EveryCheckRunsAfterAFailure) {
    BasicCheckPlatform platform = WithTypeSize(61, 4);
    platform.alignment[3] = 12;
    platform.pfSwap16u = &BrokenSwap16;
    platform.pfSwap32s = &BrokenSwap32s;
    platform.packing[0] = 8;
    EXPECT_EQ(0, RunBasicChecks(platform));
    EXPECT_THAT(FailedInfoIds(), ElementsAre(61u, 72u, 62u, 65u, 77u));
    std::vector<std::string> texts;
    for (const LogLine &line : F().log)
        texts.push_back(line.text);
    EXPECT_EQ("<cmp>CMBasicChecks</cmp>: ExernalLib alignment check failed", texts[1]);
    EXPECT_EQ("<cmp>CMBasicChecks</cmp>: SWAP16u failed with values <swap>{d3, 72}</swap>", texts[2]);
    EXPECT_EQ("<cmp>CMBasicChecks</cmp>: SWAP32s failed with values <swap>{cd, cd, cd, cd}</swap>", texts[3]);
    EXPECT_EQ("<cmp>CMBasicChecks</cmp>: Pack mode check failed", texts[4]);
}

// Failing checks stop start-up after the system components, before anything else is added.
TEST_F(BasicChecksTest, FailingChecksStopStartup) {
    Stop();
    F().log.clear();
    R().Reset();
    BasicCheckPlatform platform = WithTypeSize(59, 1);
    kestrel::cm::UseBasicCheckPlatform(&platform);
    RTS_RESULT result = Start({CmpA(), CmpB(1)});
    kestrel::cm::UseBasicCheckPlatform(nullptr);
    EXPECT_EQ(ERR_FAILED, result);
    EXPECT_THAT(R().Trace(), ElementsAre("TestCmpB:entry", "TestCmpB:import"));
    EXPECT_EQ(nullptr, Find("TestCmpA"));
    ExpectLog(2, LOG_ERROR, ERR_FAILED, "RtsBasicChecks failed. Cannot start the runtime system");
    EXPECT_EQ(1u, F().LogWithInfo(59).size());
}

TEST_F(BasicChecksTest, MeasuredLayout) {
    const BasicCheckPlatform &platform = ThisPlatform();
    EXPECT_THAT(std::vector<RTS_SIZE>(platform.alignment, platform.alignment + 4), ElementsAre(1u, 4u, 8u, 16u));
    EXPECT_THAT(std::vector<RTS_SIZE>(platform.packing, platform.packing + 3), ElementsAre(6u, 2u, 8u));
}

// The three static pools of the CM: 148, 148 and 2588 bytes on the 32-bit build; on every build
// exactly 5, 5 and 40 records fit.
struct PoolCase {
    const char *pszName;
    RTS_SIZE blockSize;
    RTS_SIZE areaSize;
    RTS_SIZE areaSize32;
    int nBlocks;
};

class PoolAreaTest : public ::testing::TestWithParam<PoolCase> {};

TEST_P(PoolAreaTest, HoldsItsRecords) {
    const PoolCase &c = GetParam();
    if (sizeof(void *) == 4) {
        EXPECT_EQ(c.areaSize32, c.areaSize) << c.pszName;
    }
    std::vector<RTS_UINTPTR> area(c.areaSize / sizeof(RTS_UINTPTR) + 1);
    RTS_RESULT result = ERR_FAILED;
    RTS_HANDLE hPool = MemPoolCreateStatic(c.blockSize, c.areaSize, area.data(), &result);
    ASSERT_EQ(ERR_OK, result);
    int n = 0;
    while (MemPoolGetBlock(hPool, nullptr) != nullptr)
        ++n;
    EXPECT_EQ(c.nBlocks, n) << c.pszName;
}

INSTANTIATE_TEST_SUITE_P(
    Pools, PoolAreaTest,
    ::testing::Values(PoolCase{"class list", sizeof(kestrel::cm::ClassEntry), kestrel::cm::kClassAreaSize, 148, 5},
                      PoolCase{"instance list", sizeof(kestrel::cm::InstanceEntry), kestrel::cm::kInstanceAreaSize, 148,
                               5},
                      PoolCase{"component table", sizeof(ComponentInfo), kestrel::cm::kComponentAreaSize, 2588, 40}));

TEST(RecordSizes, ThirtyTwoBitFigures) {
    if (sizeof(void *) != 4)
        GTEST_SKIP() << "the literal figures hold on the 32-bit build";
    EXPECT_EQ(12u, sizeof(kestrel::cm::ClassEntry));
    EXPECT_EQ(12u, sizeof(kestrel::cm::InstanceEntry));
    EXPECT_EQ(15u * 4u, sizeof(ComponentInitStruct));
    EXPECT_EQ(12u, sizeof(ComponentListEntry));
}

} // namespace
