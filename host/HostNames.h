/*
 * Names and texts of the host: the string table (string 1, the service name
 * with its embedded quotes; string 2, the default configuration file) and the
 * product version. The Windows build carries the same values in its resource
 * script; the POSIX build reads them from this table.
 */
#ifndef KESTREL_HOST_NAMES_H
#define KESTREL_HOST_NAMES_H

#include "RtsTypes.h"

namespace kestrel::host {

constexpr RTS_UI32 kStringServiceName = 1; // "\"KESTREL Control Win V3\""
constexpr RTS_UI32 kStringConfigFile = 2;  // "KESTRELControl.cfg"
constexpr RTS_UI32 kMenuTray = 102;        // popup "{Context-Menu}"
constexpr RTS_UI32 kMenuCommandAbout = 40001;

struct HostStringRow {
    RTS_UI32 ulId;
    const char *pszText;
};

// The string table, ended by a row with id 0.
extern const HostStringRow kHostStrings[];

// Text of string ulId in the table, or null.
const char *HostStringText(RTS_UI32 ulId);

// "ProductVersion" of the version resource (language 0x0407, code page 0x04B0).
constexpr const char *kProductVersion = "3.5.5.0";
constexpr const char *kVersionBlock = "040704B0";

// Buffer sizes of the host's names and paths (the Windows limits).
constexpr RTS_SIZE kServiceNameSize = 260; // up to 259 characters
constexpr RTS_SIZE kModulePathSize = 260;
constexpr RTS_SIZE kSystemTextSize = 260; // system texts of 259 characters or more are dropped

} // namespace kestrel::host

#endif
