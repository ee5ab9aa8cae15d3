// The data behind CMBasicChecks: what the build measured (type sizes, the layout of an aligned and
// a packed test structure, the byte-swap operations) next to what the runtime requires. The
// checks run over such a record; CMBasicChecks passes the one of this build, tests pass others.
#pragma once

#include "CMPrivate.h"

namespace kestrel::cm {

struct TypeSizeRow {
    RTS_UI32 ulInfoId;   // log info id of a failure
    const char *pszType; // type name as logged
    RTS_SIZE required;   // required size in bytes
    RTS_SIZE measured;   // size in this build
    bool bLargerAllowed; // a larger measured size passes too
};

struct BasicCheckPlatform {
    const TypeSizeRow *pRows;
    std::size_t nRows;
    RTS_SIZE alignment[4]; // must be 1, 4, 8, 16
    void (*pfSwap16u)(void *pBuffer, RTS_UI16 value);
    void (*pfSwap16s)(void *pBuffer, RTS_I16 value);
    void (*pfSwap32u)(void *pBuffer, RTS_UI32 value);
    void (*pfSwap32s)(void *pBuffer, RTS_I32 value);
    RTS_SIZE packing[3]; // must be 6, 2, 8
};

// The measurements of this build.
const BasicCheckPlatform &ThisPlatform();

// Makes CMBasicChecks use other measurements (null: this build's again); for tests of start-up.
void UseBasicCheckPlatform(const BasicCheckPlatform *pPlatform);

// Runs the four checks; 1 when all pass, else 0. Every check runs and logs its own failure.
RTS_I32 RunBasicChecks(const BasicCheckPlatform &platform);

} // namespace kestrel::cm
