// The basic platform checks: type sizes, alignment of external IEC library structures, byte
// order handling and structure packing, each compared with what the build measured.
#include <cstddef>

#include "CMBasicChecks.h"

namespace kestrel::cm {

namespace {

// External IEC libraries align each member to its own size, eight-byte members included (also on
// the 32-bit build, where the C compiler would put them at a multiple of four).
struct AlignmentProbe {
    RTS_UI8 a;
    RTS_UI8 b;             // offset 1
    RTS_UI32 c;            // offset 4
    RTS_UI32 d;            // offset 8
    alignas(8) RTS_UI64 e; // offset 16
};

// Packed to two bytes, as the runtime's packed records are.
#pragma pack(push, 2)
struct PackProbe {
    RTS_UI8 a;
    RTS_UI32 b; // offset 2, size 6
};
struct PackProbe2 {
    RTS_UI8 a;
    RTS_UI32 b;
    RTS_UI16 c; // size 8
};
#pragma pack(pop)

const TypeSizeRow s_typeSizes[] = {
    {73, "RTS_I8", 1, sizeof(RTS_I8), false},
    {54, "RTS_I16", 2, sizeof(RTS_I16), false},
    {55, "RTS_I32", 4, sizeof(RTS_I32), false},
    {56, "RTS_UI8", 1, sizeof(RTS_UI8), false},
    {57, "RTS_UI16", 2, sizeof(RTS_UI16), false},
    {58, "RTS_UI32", 4, sizeof(RTS_UI32), false},
    {61, "RTS_WCHAR", 2, sizeof(RTS_WCHAR), false},
    {67, "RTS_UINTPTR", sizeof(void *), sizeof(RTS_UINTPTR), false},
    {68, "RTS_SIZE", sizeof(void *), sizeof(RTS_SIZE), false},
    {59, "RTS_RESULT", 2, sizeof(RTS_RESULT), true},
};

// Data stays in the target's own byte order, so the swaps store the value as it is.
void Swap16u(void *pBuffer, RTS_UI16 value) {
    std::memcpy(pBuffer, &value, sizeof(value));
}
void Swap16s(void *pBuffer, RTS_I16 value) {
    std::memcpy(pBuffer, &value, sizeof(value));
}
void Swap32u(void *pBuffer, RTS_UI32 value) {
    std::memcpy(pBuffer, &value, sizeof(value));
}
void Swap32s(void *pBuffer, RTS_I32 value) {
    std::memcpy(pBuffer, &value, sizeof(value));
}

const BasicCheckPlatform s_platform = {
    s_typeSizes,
    sizeof(s_typeSizes) / sizeof(s_typeSizes[0]),
    {offsetof(AlignmentProbe, b), offsetof(AlignmentProbe, c), offsetof(AlignmentProbe, d),
     offsetof(AlignmentProbe, e)},
    &Swap16u,
    &Swap16s,
    &Swap32u,
    &Swap32s,
    {sizeof(PackProbe), offsetof(PackProbe, b), sizeof(PackProbe2)},
};

constexpr const char *kFunction = "CMBasicChecks";

const BasicCheckPlatform *s_pPlatformInUse = nullptr; // null: this build's

bool CheckTypeSizes(const BasicCheckPlatform &platform) {
    bool bOk = true;
    for (std::size_t i = 0; i < platform.nRows; ++i) {
        const TypeSizeRow &row = platform.pRows[i];
        bool bPass = row.measured == row.required || (row.bLargerAllowed && row.measured > row.required);
        if (bPass)
            continue;
        CM_LOG(LOG_ERROR, ERR_FAILED, row.ulInfoId, "<cmp>%s</cmp>: sizeof(%s) is <size>%lu</size> instead of %lu byte",
               kFunction, row.pszType, static_cast<unsigned long>(row.measured),
               static_cast<unsigned long>(row.required));
        bOk = false;
    }
    return bOk;
}

bool CheckAlignment(const BasicCheckPlatform &platform) {
    static const RTS_SIZE s_expected[4] = {1, 4, 8, 16};
    for (int i = 0; i < 4; ++i) {
        if (platform.alignment[i] != s_expected[i]) {
            CM_LOG(LOG_ERROR, ERR_FAILED, 72, "<cmp>%s</cmp>: ExernalLib alignment check failed", kFunction);
            return false;
        }
    }
    return true;
}

bool CheckSwaps(const BasicCheckPlatform &platform) {
    bool bOk = true;
    unsigned char b[4];
    auto reset = [&b] { std::memset(b, 0xCD, sizeof(b)); };

    reset();
    platform.pfSwap16u(b, 0xD372);
    if (b[0] != 0x72 || b[1] != 0xD3) {
        CM_LOG(LOG_ERROR, ERR_FAILED, 62, "<cmp>%s</cmp>: SWAP16u failed with values <swap>{%x, %x}</swap>", kFunction,
               b[0], b[1]);
        bOk = false;
    }
    reset();
    platform.pfSwap16s(b, 0x5372);
    if (b[0] != 0x72 || b[1] != 0x53) {
        CM_LOG(LOG_ERROR, ERR_FAILED, 63, "<cmp>%s</cmp>: SWAP16s failed with values <swap>{%x, %x}</swap>", kFunction,
               b[0], b[1]);
        bOk = false;
    }
    reset();
    platform.pfSwap32u(b, 0xD3725A86u);
    if (b[0] != 0x86 || b[1] != 0x5A || b[2] != 0x72 || b[3] != 0xD3) {
        CM_LOG(LOG_ERROR, ERR_FAILED, 64, "<cmp>%s</cmp>: SWAP32u failed with values <swap>{%x, %x, %x, %x}</swap>",
               kFunction, b[0], b[1], b[2], b[3]);
        bOk = false;
    }
    reset();
    platform.pfSwap32s(b, static_cast<RTS_I32>(0xD3725A86u));
    if (b[0] != 0x86 || b[1] != 0x5A || b[2] != 0x72 || b[3] != 0xD3) {
        CM_LOG(LOG_ERROR, ERR_FAILED, 65, "<cmp>%s</cmp>: SWAP32s failed with values <swap>{%x, %x, %x, %x}</swap>",
               kFunction, b[0], b[1], b[2], b[3]);
        bOk = false;
    }
    return bOk;
}

bool CheckPacking(const BasicCheckPlatform &platform) {
    static const RTS_SIZE s_expected[3] = {6, 2, 8};
    for (int i = 0; i < 3; ++i) {
        if (platform.packing[i] != s_expected[i]) {
            CM_LOG(LOG_ERROR, ERR_FAILED, 77, "<cmp>%s</cmp>: Pack mode check failed", kFunction);
            return false;
        }
    }
    return true;
}

} // namespace

const BasicCheckPlatform &ThisPlatform() {
    return s_platform;
}

void UseBasicCheckPlatform(const BasicCheckPlatform *pPlatform) {
    s_pPlatformInUse = pPlatform;
}

RTS_I32 RunBasicChecks(const BasicCheckPlatform &platform) {
    // Every check runs, so that one start-up shows every problem of a build.
    bool bSizes = CheckTypeSizes(platform);
    bool bAlignment = CheckAlignment(platform);
    bool bSwaps = CheckSwaps(platform);
    bool bPacking = CheckPacking(platform);
    return (bSizes && bAlignment && bSwaps && bPacking) ? 1 : 0;
}

} // namespace kestrel::cm

extern "C" RTS_I32 CMBasicChecks(void) {
    using namespace kestrel::cm;
    return RunBasicChecks(s_pPlatformInUse != nullptr ? *s_pPlatformInUse : ThisPlatform());
}
