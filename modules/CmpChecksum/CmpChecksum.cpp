// CmpChecksum: IEEE CRC-32 (reflected polynomial 0xEDB88320) through zlib.
//
// Two families share CRC32Init, which returns 0:
// - CRC32Update/CRC32Finish compute the standard CRC-32 (register preset to
//   all ones, result inverted), as zip, PNG and zlib do. The running value
//   between calls is the finished CRC of the data so far, so CRC32Finish
//   returns it unchanged and a running value can be continued at any time.
//   CRC of "123456789" = 0xCBF43926.
// - CRC32Update2/CRC32Finish2 work on the raw CRC register, without the
//   preset and the final inversion: the running value is the register itself,
//   and CRC32Finish2 returns it unchanged. Started from CRC32Init's 0 this is
//   the CRC-32 with initial value 0 and no final XOR (the "raw" remainder);
//   started from a register a caller kept, it continues that register. The
//   file-system component uses this family for the CRCs it caches.
//   CRC2 of "123456789" = 0x2DFD2D88.
// Both are linear in the data and split freely: updating with a then b gives
// the same value as one update with a followed by b.
#include <zlib.h>

#include "CmpChecksumItf.h"
#include "ModuleSupport.h"

namespace {

kestrel::module::CmLink s_cm;

// zlib's length parameter is 32-bit on some platforms; crc32_z takes size_t.
RTS_UI32 ZlibCrc(RTS_UI32 ulCrc, const RTS_UI8 *pData, RTS_SIZE ulSize) {
    if (pData == nullptr || ulSize == 0)
        return ulCrc;
    return static_cast<RTS_UI32>(crc32_z(ulCrc, pData, static_cast<z_size_t>(ulSize)));
}

const ExportEntry s_exports[] = {
    RTS_EXPORT_FN(CRC32Init),       RTS_EXPORT_FN(CRC32Update),
    RTS_EXPORT_FN(CRC32Finish),   RTS_EXPORT_FN(CRC32Update2),
    RTS_EXPORT_FN(CRC32Finish2), RTS_EXPORT_END,
};

RTS_RESULT ExportFunctions() {
    return s_cm.Export(s_exports, CMPID_CmpChecksum);
}
RTS_RESULT ImportFunctions() {
    return ERR_OK;
}
RTS_RESULT HookFunction(RTS_UI32, RTS_UINTPTR, RTS_UINTPTR) {
    return ERR_OK;
}

} // namespace

extern "C" {

RTS_UI32 CRC32Init(void) {
    return 0;
}

RTS_UI32 CRC32Update(RTS_UI32 ulCrc, const RTS_UI8 *pData, RTS_SIZE ulSize) {
    return ZlibCrc(ulCrc, pData, ulSize);
}

RTS_UI32 CRC32Finish(RTS_UI32 ulCrc) {
    return ulCrc;
}

// zlib inverts on the way in and out; inverting around it leaves the raw register.
RTS_UI32 CRC32Update2(RTS_UI32 ulCrc, const RTS_UI8 *pData, RTS_SIZE ulSize) {
    return ~ZlibCrc(~ulCrc, pData, ulSize);
}

RTS_UI32 CRC32Finish2(RTS_UI32 ulCrc) {
    return ulCrc;
}

RTS_RESULT CmpChecksumEntry(ComponentInitStruct *pInit) {
    if (pInit == nullptr)
        return ERR_PARAMETER;
    s_cm.Enter(pInit, CMPID_CmpChecksum, ExportFunctions, ImportFunctions, HookFunction);
    return ERR_OK;
}

} // extern "C"
