// A generated benchmark component: built once per index (BENCHMOD_INDEX, BENCHMOD_NAME), it
// exports 25 functions "<name>Fn00".."<name>Fn24" and imports 20 functions by name from the other
// nine modules of its group of ten, so that any multiple of ten modules resolves completely.
#include <cstdio>
#include <utility>

#include "CmpItf.h"

#ifndef BENCHMOD_INDEX
#error "BENCHMOD_INDEX must number the module"
#endif

namespace {

constexpr int kExports = 25;
constexpr int kImports = 20;
constexpr int kGroup = 10;

ComponentInitStruct s_cm;
RTS_VOID_FCTPTR s_slots[kImports];
char s_exportNames[kExports][32];
ExportEntry s_exports[kExports + 1];

template <int J> int Function() {
    return BENCHMOD_INDEX * 100 + J;
}

template <std::size_t... J> void FillExports(std::index_sequence<J...>) {
    ((s_exports[J] =
          ExportEntry{reinterpret_cast<RTS_VOID_FCTPTR>(&Function<static_cast<int>(J)>), s_exportNames[J], 0, 0}),
     ...);
}

RTS_RESULT ExportFunctions() {
    return s_cm.pfCMRegisterAPI(s_exports, nullptr, 0, 0x8000u + BENCHMOD_INDEX);
}

RTS_RESULT ImportFunctions() {
    const int group = BENCHMOD_INDEX / kGroup;
    const int member = BENCHMOD_INDEX % kGroup;
    RTS_RESULT first = ERR_OK;
    for (int k = 0; k < kImports; ++k) {
        int from = group * kGroup + (member + 1 + k % (kGroup - 1)) % kGroup;
        char szName[32];
        std::snprintf(szName, sizeof(szName), "BenchMod%03dFn%02d", from, k);
        RTS_RESULT result = s_cm.pfCMGetAPI2(szName, &s_slots[k], 0, 0, 0);
        if (first == ERR_OK)
            first = result;
    }
    return first;
}

RTS_UI32 GetVersion() {
    return RTS_SYSTEM_VERSION;
}

RTS_RESULT Hook(RTS_UI32, RTS_UINTPTR, RTS_UINTPTR) {
    return ERR_OK;
}

} // namespace

extern "C" RTS_MODULE_EXPORT RTS_RESULT ComponentEntry(ComponentInitStruct *pInitStruct) {
    s_cm = *pInitStruct;
    for (int j = 0; j < kExports; ++j)
        std::snprintf(s_exportNames[j], sizeof(s_exportNames[j]), "BenchMod%03dFn%02d", BENCHMOD_INDEX, j);
    FillExports(std::make_index_sequence<kExports>{});
    s_exports[kExports] = ExportEntry{nullptr, nullptr, 0, 0};
    pInitStruct->CmpId = 0x8000u + BENCHMOD_INDEX;
    pInitStruct->pfExportFunctions = &ExportFunctions;
    pInitStruct->pfImportFunctions = &ImportFunctions;
    pInitStruct->pfGetVersion = &GetVersion;
    pInitStruct->pfHookFunction = &Hook;
    return ERR_OK;
}
