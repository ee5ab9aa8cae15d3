// Tests of the two forms of CMUtlStrICmp and CMUtlSafeStrCpy: the portable one and the one that
// scans 32 bytes at a time. The C functions use one of them, chosen for the processor, so these
// tests call each form directly and check both on any machine that has both.
#include <cctype>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "CMUtlWideScan.h"
#include "GuardedPages.h"
#include "TestBuffer.h"

namespace {

using kestrel::cmutl::ScanForms;
using kestrel::test::GuardedPages;
using kestrel::test::MarkedBuffer;

// The portable forms, and the 32-byte forms where the processor has them.
std::vector<std::pair<const char *, ScanForms>> FormsToTest() {
    std::vector<std::pair<const char *, ScanForms>> forms = {
        {"portable", {&kestrel::cmutl::StrICmpPortable, &kestrel::cmutl::SafeStrCpyPortable}}};
    if (kestrel::cmutl::WideScanForms().pfStrICmp != nullptr) {
        forms.emplace_back("wide", kestrel::cmutl::WideScanForms());
    }
    return forms;
}

// Three memory pages, so that strings can end just before, on or just after a page end.
struct alignas(4096) PageSpan {
    static constexpr std::size_t kPage = 4096;
    char data[3 * kPage];
    PageSpan() { std::memset(data, 'q', sizeof data); }
    // Writes `text` with its terminator so that it starts at `at`.
    const char *Place(std::size_t at, const std::string &text) {
        std::memcpy(data + at, text.c_str(), text.size() + 1);
        return data + at;
    }
};

// The comparison spelled out byte by byte with the C library's case mapping.
RTS_I32 ReferenceICmp(const char *a, const char *b) {
    for (;; ++a, ++b) {
        if (*a == 0 || *b == 0) {
            return *a == *b ? 0 : (*a == 0 ? -1 : 1);
        }
        const int d = std::tolower(static_cast<unsigned char>(*a)) - std::tolower(static_cast<unsigned char>(*b));
        if (d != 0) {
            return d;
        }
    }
}

// Bad input of both functions, in both forms.
TEST(ScanForms, RejectNullAndEmptyBuffers) {
    for (const auto &[name, form] : FormsToTest()) {
        MarkedBuffer<> dest;
        EXPECT_EQ(form.pfSafeStrCpy(nullptr, 4, "a"), ERR_PARAMETER) << name;
        EXPECT_EQ(form.pfSafeStrCpy(dest.get(), 4, nullptr), ERR_PARAMETER) << name;
        EXPECT_EQ(form.pfSafeStrCpy(dest.get(), 0, "a"), ERR_PARAMETER) << name;
        EXPECT_TRUE(dest.UntouchedFrom(0)) << name;
        EXPECT_EQ(form.pfStrICmp(nullptr, "a"), -1) << name;
        EXPECT_EQ(form.pfStrICmp("a", nullptr), -1) << name;
        EXPECT_EQ(form.pfStrICmp(nullptr, nullptr), -1) << name;
    }
}

// Every byte against its partner in the case bit and against 'a', behind an equal first byte:
// only ASCII letters compare equal ('@' and '`', '[' and '{', 0xC4 and 0xE4 differ), bytes compare
// unsigned. The C function answers with the form chosen for the processor.
TEST(ScanForms, StrICmpFoldsAsciiLettersOnly) {
    EXPECT_EQ(CMUtlStrICmp("k\xFF", "Ka"), 0xFF - 'a');
    for (const auto &[name, form] : FormsToTest()) {
        for (int c = 1; c < 256; ++c) {
            for (int partner : {c ^ 0x20, int{'a'}}) {
                const char a[3] = {'k', static_cast<char>(c), 0};
                const char b[3] = {'K', static_cast<char>(partner), 0};
                EXPECT_EQ(form.pfStrICmp(a, b), ReferenceICmp(a, b)) << name << " bytes " << c << ' ' << partner;
            }
        }
    }
}

// Strings of several lengths running into a page end at every offset, b placed beside a, before
// it, behind it or far from any page end; b equal to a but for case, differing at one position, or
// ending one byte early; compared both ways round.
TEST(ScanForms, StrICmpStringsRunningIntoAPageEnd) {
    auto spanA = std::make_unique<PageSpan>();
    auto spanB = std::make_unique<PageSpan>();
    for (const auto &[name, form] : FormsToTest()) {
        for (std::size_t length : {0u, 1u, 15u, 16u, 17u, 31u, 33u, 64u, 150u}) {
            std::string a;
            std::string upper; // every third letter in upper case
            for (std::size_t k = 0; k < length; ++k) {
                a += static_cast<char>('a' + k % 26);
                upper += static_cast<char>((k % 3 == 0 ? 'A' : 'a') + k % 26);
            }
            for (std::size_t startA = PageSpan::kPage - 160; startA <= PageSpan::kPage + 1; ++startA) {
                const char *pa = spanA->Place(startA, a);
                for (std::size_t startB : {startA, startA - 33, startA + 5, 64 + startA % 32}) {
                    // change: '#' at that position; length: none; length + 1: b a byte shorter
                    for (std::size_t change = 0; change <= length + 1; ++change) {
                        std::string b = upper;
                        if (change < length) {
                            b[change] = '#';
                        } else if (change > length && length > 0) {
                            b.pop_back();
                        }
                        const char *pb = spanB->Place(startB, b);
                        ASSERT_TRUE(form.pfStrICmp(pa, pb) == ReferenceICmp(pa, pb) &&
                                    form.pfStrICmp(pb, pa) == ReferenceICmp(pb, pa))
                            << name << " length " << length << " at " << startA << ", " << startB << " change "
                            << change;
                    }
                }
            }
        }
    }
}

// Strings whose terminator lies up to 40 bytes before a page that may not be read: a block read
// that strays into it crashes the test. b equal but for case, differing in its last byte, or a
// byte shorter, ending at or near a guard of its own; compared both ways round. The copy reads
// such sources too, into buffers of every size around their length.
TEST(ScanForms, NoReadPastTheLastPageOfAString) {
    GuardedPages pagesA(2);
    GuardedPages pagesB(2);
    for (const auto &[name, form] : FormsToTest()) {
        for (std::size_t length = 0; length <= 100; ++length) {
            std::string a;
            std::string upper;
            for (std::size_t k = 0; k < length; ++k) {
                a += static_cast<char>('a' + k % 26);
                upper += static_cast<char>('A' + k % 26);
            }
            std::vector<std::string> partners = {upper};
            if (length > 0) {
                partners.push_back(upper.substr(0, length - 1) + '#');
                partners.push_back(upper.substr(0, length - 1));
            }
            for (std::size_t gapA = 0; gapA <= 40; ++gapA) {
                char *pa = pagesA.end() - gapA - length - 1;
                std::memcpy(pa, a.c_str(), length + 1);
                for (const std::string &b : partners) {
                    for (std::size_t gapB : {0u, 5u, 31u}) {
                        char *pb = pagesB.end() - gapB - b.size() - 1;
                        std::memcpy(pb, b.c_str(), b.size() + 1);
                        ASSERT_TRUE(form.pfStrICmp(pa, pb) == ReferenceICmp(pa, pb) &&
                                    form.pfStrICmp(pb, pa) == ReferenceICmp(pb, pa))
                            << name << " length " << length << " gaps " << gapA << ", " << gapB << " partner " << b;
                    }
                }
                for (RTS_SIZE size = length > 0 ? length : 1; size <= length + 2; ++size) {
                    MarkedBuffer<char, 128> dest;
                    ASSERT_EQ(form.pfSafeStrCpy(dest.get(), size, pa), size > length ? ERR_OK : ERR_BUFFERSIZE)
                        << name << " length " << length << " size " << size;
                    ASSERT_EQ(dest.Text(), a.substr(0, size - 1)) << name;
                }
            }
        }
    }
}

// Every source length against every buffer size, the source starting from 65 bytes before a page
// end (no block read reaches it) to just past it: min(length + 1, size) bytes copied, a terminator
// in the last byte, 15 when the text was cut, nothing written elsewhere.
TEST(ScanForms, SafeStrCpyEveryLengthSizeAndPagePosition) {
    auto span = std::make_unique<PageSpan>();
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-";
    for (const auto &[name, form] : FormsToTest()) {
        for (std::size_t start = PageSpan::kPage - 65; start <= PageSpan::kPage + 1; ++start) {
            for (std::size_t length = 0; length <= 64; ++length) {
                const char *source = span->Place(start, alphabet.substr(0, length));
                for (RTS_SIZE size = 1; size <= 70; ++size) {
                    MarkedBuffer<> dest;
                    const RTS_RESULT result = form.pfSafeStrCpy(dest.get(), size, source);
                    const std::size_t copied = length + 1 < size ? length + 1 : size;
                    ASSERT_TRUE(result == (length + 1 > size ? ERR_BUFFERSIZE : ERR_OK) &&
                                std::memcmp(dest.get(), source, copied - 1) == 0 && dest.data[copied - 1] == 0 &&
                                dest.UntouchedFrom(copied, size - 1) && dest.data[size - 1] == 0 &&
                                dest.UntouchedFrom(size))
                        << name << " start " << start << " length " << length << " size " << size;
                }
            }
        }
    }
}

// Strings that end their heap block exactly: AddressSanitizer reports a read past them.
TEST(ScanForms, StringsAtTheEndOfTheirAllocation) {
    for (const auto &[name, form] : FormsToTest()) {
        for (std::size_t length = 0; length < 70; ++length) {
            std::unique_ptr<char[]> a(new char[length + 1]);
            std::unique_ptr<char[]> b(new char[length + 1]);
            std::memset(a.get(), 'k', length);
            std::memset(b.get(), 'K', length);
            a[length] = b[length] = 0;
            ASSERT_EQ(form.pfStrICmp(a.get(), b.get()), 0) << name << ' ' << length;
            MarkedBuffer<> dest;
            ASSERT_EQ(form.pfSafeStrCpy(dest.get(), 80, a.get()), ERR_OK) << name << ' ' << length;
            ASSERT_EQ(dest.Text(), std::string(length, 'k')) << name;
        }
    }
}

} // namespace
