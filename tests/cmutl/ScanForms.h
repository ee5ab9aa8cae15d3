// The forms in which the block-scanning string functions exist: as the C
// functions (which pick a form for the processor), and each form called
// directly — the portable one, and the 32-byte one where the processor has
// it. Tests of those functions run once per form, so that both forms are
// checked on a machine that would only ever use one of them.
#pragma once

#include <cstring>
#include <new>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "CMUtlWideScan.h"

namespace kestrel::test {

struct ScanForm {
    const char *name;
    RTS_I32 (*pfStrICmp)(const char *, const char *);
    RTS_RESULT (*pfSafeStrCpy)(char *, RTS_SIZE, const char *);
};

inline const ScanForm kScanForms[] = {
    {"CFunction", &CMUtlStrICmp, &CMUtlSafeStrCpy},
    {"Portable", &kestrel::cmutl::StrICmpPortable, &kestrel::cmutl::SafeStrCpyPortable},
    // Null, and skipped, where the processor has no 32-byte scans.
    {"Wide", kestrel::cmutl::WideScanForms().pfStrICmp, kestrel::cmutl::WideScanForms().pfSafeStrCpy},
};

class ScanFormTest : public ::testing::TestWithParam<ScanForm> {
  protected:
    void SetUp() override {
        if (GetParam().pfStrICmp == nullptr) {
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

// A buffer spanning a few memory pages, aligned to a page, so that strings
// can be placed to end just before, on or just after a page boundary.
struct PageSpan {
    static constexpr std::size_t kPage = 4096;
    static constexpr std::size_t kSize = 3 * kPage;
    char *data = static_cast<char *>(::operator new (kSize, std::align_val_t{kPage}));
    PageSpan() { std::memset(data, 'q', kSize); }
    ~PageSpan() { ::operator delete (data, std::align_val_t{kPage}); }
    PageSpan(const PageSpan &) = delete;
    PageSpan &operator=(const PageSpan &) = delete;
    // Writes `text` with its terminator so that it starts at `at`.
    char *Place(std::size_t at, const std::string &text) {
        std::memcpy(data + at, text.c_str(), text.size() + 1);
        return data + at;
    }
};

} // namespace kestrel::test

#define KESTREL_FOR_EACH_SCAN_FORM(Fixture)                                                                            \
    INSTANTIATE_TEST_SUITE_P(Forms, Fixture, ::testing::ValuesIn(kestrel::test::kScanForms),                           \
                             kestrel::test::ScanFormName)
