/*
 * CmpChecksum: IEEE CRC-32 (polynomial 0xEDB88320, reflected).
 * A runtime service module; other components import these functions by name.
 */
#ifndef KESTREL_CMPCHECKSUMITF_H
#define KESTREL_CMPCHECKSUMITF_H

#include "RtsTypes.h"

RTS_BEGIN_C

RTS_UI32 CRC32Init(void);
RTS_UI32 CRC32Update(RTS_UI32 ulCrc, const RTS_UI8 *pData, RTS_SIZE ulSize);
RTS_UI32 CRC32Finish(RTS_UI32 ulCrc);
RTS_UI32 CRC32Update2(RTS_UI32 ulCrc, const RTS_UI8 *pData, RTS_SIZE ulSize);
RTS_UI32 CRC32Finish2(RTS_UI32 ulCrc);

RTS_END_C

#endif
