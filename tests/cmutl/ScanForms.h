// The forms in which the block-scanning string functions exist: as the C
// functions (which pick a form for the processor), and each form called
// directly — the portable one, and the 32-byte one where the processor has
// it. Tests of those functions run once per form, so that both forms are
// checked on a machine that would only ever use one of them.
#pragma once

#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "CMUtlWideScan.h"

namespace kestrel::test {

struct ScanForm {
    const char *name;
    bool bNeedsWideScan; // skipped where the processor has no 32-byte scans
    RTS_I32 (*pfStrICmp)(const char *, const char *);
    RTS_RESULT (*pfSafeStrCpy)(char *, RTS_SIZE, const char *);
};

inline const ScanForm kScanForms[] = {
    {"CFunction", false, &CMUtlStrICmp, &CMUtlSafeStrCpy},
    {"Portable", false,
     [](const char *a, const char *b) {
         return kestrel::cmutl::StrICmpFrom(reinterpret_cast<const unsigned char *>(a),
                                            reinterpret_cast<const unsigned char *>(b), 0);
     },
     [](char *d, RTS_SIZE n, const char *s) {
         return kestrel::cmutl::SafeStrCpyFrom(reinterpret_cast<unsigned char *>(d), n,
                                               reinterpret_cast<const unsigned char *>(s), 0);
     }},
    {"Wide", true,
     [](const char *a, const char *b) {
         return kestrel::cmutl::StrICmpWide(reinterpret_cast<const unsigned char *>(a),
                                            reinterpret_cast<const unsigned char *>(b));
     },
     [](char *d, RTS_SIZE n, const char *s) {
         return kestrel::cmutl::SafeStrCpyWide(reinterpret_cast<unsigned char *>(d), n,
                                               reinterpret_cast<const unsigned char *>(s));
     }},
};

class ScanFormTest : public ::testing::TestWithParam<ScanForm> {
  protected:
    void SetUp() override {
        if (GetParam().bNeedsWideScan && !kestrel::cmutl::g_bWideScan) {
            GTEST_SKIP() << "the processor has no 32-byte scans";
        }
    }
    RTS_I32 StrICmp(const char *a, const char *b) const { return GetParam().pfStrICmp(a, b); }
    RTS_RESULT SafeStrCpy(char *d, RTS_SIZE n, const char *s) const { return GetParam().pfSafeStrCpy(d, n, s); }
};

inline void PrintTo(const ScanForm &form, std::ostream *os) {
    *os << form.name;
}

inline std::string ScanFormName(const ::testing::TestParamInfo<ScanForm> &info) {
    return info.param.name;
}

} // namespace kestrel::test

#define KESTREL_FOR_EACH_SCAN_FORM(Fixture)                                                                            \
    INSTANTIATE_TEST_SUITE_P(Forms, Fixture, ::testing::ValuesIn(kestrel::test::kScanForms),                           \
                             kestrel::test::ScanFormName)
