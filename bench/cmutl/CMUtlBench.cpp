// Benchmarks of the string utilities, each against the C library function
// that does the same job in the same binary, over the same inputs:
//   CMUtlStrICmp    vs strcasecmp
//   CMUtlSafeStrCpy vs memccpy(dest, src, 0, size) plus a terminator in the
//                   last byte: a bounded copy that stops after the source's
//                   terminator, the exact job of the safe copy (strncpy would
//                   also zero the rest of the buffer, snprintf("%s") would
//                   parse a format; both do more work and would flatter us)
//   CMUtlsnprintf   vs snprintf, same format and arguments
//   CMUtlStrToW     vs mbstowcs in the C locale: the C library's bulk
//                   narrow-to-wide conversion, bounded by the destination's
//                   length like ours; the texts are ASCII, which both map
//                   to the same code points (a loop of mbrtoc16 calls would
//                   pay a call per character and be the easier peer)
// At the end the medians are paired and the ratios printed: C library time
// divided by CMUtl time, so 1.0 or more means CMUtl is not slower.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <map>
#include <string>
#include <strings.h>
#include <utility>
#include <vector>

#include "CMUtlItf.h"

namespace {

// Inputs: component names, settings keys and paths, the texts the runtime
// handles, and a long text for the bulk paths.
const std::vector<std::string> kShort = {"SysFile",    "CmpSettings", "ComponentManager", "SysTarget",
                                         "CmpMemPool", "SysTimeRtc",  "CmpEventMgr",      "PlcLogic"};
const std::vector<std::string> kMedium = {
    "$PlcLogic$/Application/Application.app", "ComponentManager.Component.12=CmpChecksum",
    "/var/opt/kestrel/PlcLogic/visu/images/logo_small.png", "SysFileMap.FilePath.ReplaceFileExtension"};
const std::string kLongBase = "The component manager links every component to the functions of the others by name, "
                              "checks the platform, and drives the start-up hooks in a fixed order before the "
                              "communication cycle begins to run every ten milliseconds.";
const std::vector<std::string> kLong = {kLongBase, kLongBase + " (2)"};

std::string Swapped(const std::string &s) {
    std::string out = s;
    for (char &c : out) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 32);
        } else if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c + 32);
        }
    }
    return out;
}

struct Workload {
    const char *name;
    const std::vector<std::string> *texts;
};
const Workload kWorkloads[] = {{"short", &kShort}, {"medium", &kMedium}, {"long", &kLong}};

// Where a text lies relative to 32- and 64-byte boundaries decides how many
// blocks a vector scan reads and whether they split cache lines, for the C
// library as for us. So every comparison runs over the same 16 placements of
// both texts, spread over the offsets 0..63, rather than over wherever the
// allocator put one copy of each. The slots start at a page boundary, so
// the same comparisons straddle a page end (where both sides take their
// careful paths) in every process and whatever ran before; a base wherever
// the heap happened to be moved single ratios by a tenth between runs.
struct PlacedPairs {
    std::vector<char> storage;
    std::vector<std::pair<const char *, const char *>> pairs;
};
PlacedPairs Place(const std::vector<std::pair<std::string, std::string>> &texts) {
    constexpr std::size_t kPlacements = 16;
    std::size_t longest = 0;
    for (const auto &[a, b] : texts) {
        longest = std::max({longest, a.size(), b.size()});
    }
    // An odd number of cache lines per slot: a power of two would put the
    // texts on the same few sets of the first-level cache and measure its
    // conflicts instead of the comparisons.
    const std::size_t kSlot = ((longest + 1 + 63 + 63) / 64 | 1) * 64;
    PlacedPairs placed;
    constexpr std::size_t kPage = 4096;
    placed.storage.assign(texts.size() * kPlacements * 2 * kSlot + kPage, 0);
    char *base = placed.storage.data();
    base += (kPage - reinterpret_cast<std::uintptr_t>(base) % kPage) % kPage;
    std::size_t slot = 0;
    for (std::size_t k = 0; k < kPlacements; ++k) {
        for (const auto &[a, b] : texts) {
            char *pa = base + slot++ * kSlot + (k * 23) % 64;
            char *pb = base + slot++ * kSlot + (k * 41 + 7) % 64;
            std::memcpy(pa, a.c_str(), a.size() + 1);
            std::memcpy(pb, b.c_str(), b.size() + 1);
            placed.pairs.emplace_back(pa, pb);
        }
    }
    return placed;
}

template <bool kOurs> void ComparePairs(benchmark::State &state, const PlacedPairs &placed) {
    for (auto _ : state) {
        for (const auto &[pa, pb] : placed.pairs) {
            const char *a = pa;
            const char *b = pb;
            benchmark::DoNotOptimize(a);
            benchmark::DoNotOptimize(b);
            int r = kOurs ? CMUtlStrICmp(a, b) : strcasecmp(a, b);
            benchmark::DoNotOptimize(r);
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * placed.pairs.size()));
}

// ---- case-insensitive comparison: equal texts in the other case (a full scan)
template <bool kOurs> void CompareCase(benchmark::State &state, const std::vector<std::string> *texts) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (const auto &t : *texts) {
        pairs.emplace_back(t, Swapped(t));
    }
    ComparePairs<kOurs>(state, Place(pairs));
}

// ---- case-insensitive comparison of different names (a lookup that misses)
template <bool kOurs> void CompareMiss(benchmark::State &state) {
    std::vector<std::pair<std::string, std::string>> pairs;
    for (std::size_t i = 0; i < kShort.size(); ++i) {
        pairs.emplace_back(kShort[i], kShort[(i + 1) % kShort.size()]);
    }
    ComparePairs<kOurs>(state, Place(pairs));
}

// ---- bounded copy into a 256-byte buffer
template <bool kOurs> void Copy(benchmark::State &state, const std::vector<std::string> *texts) {
    char dest[256];
    for (auto _ : state) {
        for (const auto &t : *texts) {
            const char *src = t.c_str();
            benchmark::DoNotOptimize(src);
            if constexpr (kOurs) {
                RTS_RESULT r = CMUtlSafeStrCpy(dest, sizeof dest, src);
                benchmark::DoNotOptimize(r);
            } else {
                void *end = memccpy(dest, src, 0, sizeof dest);
                dest[sizeof dest - 1] = 0;
                benchmark::DoNotOptimize(end);
            }
            benchmark::ClobberMemory();
        }
    }
}

// ---- formatting: the same format and arguments for both
struct FormatCase {
    const char *name;
    void (*ours)(char *, std::size_t, const char *);
    void (*theirs)(char *, std::size_t, const char *);
    const char *format;
};

#define KESTREL_FORMAT_CASE(label, fmt, ...)                                                                           \
    FormatCase {                                                                                                       \
        label,                                                                                                         \
            [](char *d, std::size_t n, const char *f) {                                                                \
                benchmark::DoNotOptimize(CMUtlsnprintf(d, n, f, __VA_ARGS__));                                         \
            },                                                                                                         \
            [](char *d, std::size_t n, const char *f) {                                                                \
                benchmark::DoNotOptimize(std::snprintf(d, n, f, __VA_ARGS__));                                         \
            },                                                                                                         \
            fmt                                                                                                        \
    }

const FormatCase kFormatCases[] = {
    KESTREL_FORMAT_CASE("ready", "%s ready", "CmpSettings"),
    KESTREL_FORMAT_CASE("log", "<cmp>%s</cmp>: import of <name>%s</name> failed", "SysFile", "SysMemAllocData"),
    KESTREL_FORMAT_CASE("ids", "error <id>0x%08x</id> in component %u at step %d", 0x104u, 260u, -17),
    KESTREL_FORMAT_CASE("path", "%s%s/%s", "/var/opt/kestrel/", "PlcLogic", "Application.app"),
    KESTREL_FORMAT_CASE("version", "%u.%u.%u.%u", 3u, 5u, 5u, 0u),
    KESTREL_FORMAT_CASE("float", "cycle %.2f ms", 10.25),
};

template <bool kOurs> void Format(benchmark::State &state, const FormatCase *c) {
    char dest[256];
    for (auto _ : state) {
        const char *format = c->format;
        benchmark::DoNotOptimize(format); // no compile-time folding of the format for either side
        (kOurs ? c->ours : c->theirs)(dest, sizeof dest, format);
        benchmark::ClobberMemory();
    }
}

// ---- narrow to wide
template <bool kOurs> void Widen(benchmark::State &state, const std::vector<std::string> *texts) {
    RTS_WCHAR ours[256];
    wchar_t theirs[256];
    for (auto _ : state) {
        for (const auto &t : *texts) {
            const char *src = t.c_str();
            benchmark::DoNotOptimize(src);
            if constexpr (kOurs) {
                RTS_RESULT r = CMUtlStrToW(src, ours, 256);
                benchmark::DoNotOptimize(r);
            } else {
                std::size_t n = std::mbstowcs(theirs, src, 256);
                benchmark::DoNotOptimize(n);
            }
            benchmark::ClobberMemory();
        }
    }
}

// Collects the median (or the single run) of every benchmark for the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
            if (median || single) {
                times_[run.run_name.function_name] = run.GetAdjustedCPUTime();
            }
        }
    }
    void PrintRatios() const {
        std::printf("\nRatios (C library / CMUtl, median CPU time per iteration; >= 1.0: CMUtl not slower)\n");
        for (const auto &[name, ours] : times_) {
            const std::string suffix = "/CMUtl";
            if (name.size() <= suffix.size() || name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0) {
                continue;
            }
            const std::string pair = name.substr(0, name.size() - suffix.size());
            const auto theirs = times_.find(pair + "/C");
            if (theirs == times_.end() || ours <= 0) {
                continue;
            }
            std::printf("  %-24s CMUtl %9.1f ns   C library %9.1f ns   ratio %5.2f\n", pair.c_str(), ours,
                        theirs->second, theirs->second / ours);
        }
    }

  private:
    std::map<std::string, double> times_;
};

} // namespace

int main(int argc, char **argv) {
    std::setlocale(LC_ALL, "C"); // the runtime's locale, and mbstowcs's
    for (const Workload &w : kWorkloads) {
        const std::string n = w.name;
        benchmark::RegisterBenchmark(("StrICmp/" + n + "/CMUtl").c_str(), CompareCase<true>, w.texts);
        benchmark::RegisterBenchmark(("StrICmp/" + n + "/C").c_str(), CompareCase<false>, w.texts);
    }
    benchmark::RegisterBenchmark("StrICmp/miss/CMUtl", CompareMiss<true>);
    benchmark::RegisterBenchmark("StrICmp/miss/C", CompareMiss<false>);
    for (const Workload &w : kWorkloads) {
        const std::string n = w.name;
        benchmark::RegisterBenchmark(("SafeStrCpy/" + n + "/CMUtl").c_str(), Copy<true>, w.texts);
        benchmark::RegisterBenchmark(("SafeStrCpy/" + n + "/C").c_str(), Copy<false>, w.texts);
    }
    for (const FormatCase &c : kFormatCases) {
        const std::string n = c.name;
        benchmark::RegisterBenchmark(("snprintf/" + n + "/CMUtl").c_str(), Format<true>, &c);
        benchmark::RegisterBenchmark(("snprintf/" + n + "/C").c_str(), Format<false>, &c);
    }
    for (const Workload &w : kWorkloads) {
        const std::string n = w.name;
        benchmark::RegisterBenchmark(("StrToW/" + n + "/CMUtl").c_str(), Widen<true>, w.texts);
        benchmark::RegisterBenchmark(("StrToW/" + n + "/C").c_str(), Widen<false>, w.texts);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    return 0;
}
