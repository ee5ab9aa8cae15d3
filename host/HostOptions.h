/*
 * The host's command line: options chosen by the second character of a token
 * that starts with "-" or "/", scanned left to right from argv[1]. The scan
 * only decides; the entry point acts on the result.
 */
#ifndef KESTREL_HOST_OPTIONS_H
#define KESTREL_HOST_OPTIONS_H

#include <string>
#include <vector>

#include "RtsTypes.h"

namespace kestrel::host {

enum class HostAction {
    Dispatch,   // no action selected: hand the process to the service dispatcher
    Install,    // -i
    Uninstall,  // -u
    Start,      // -s: start the installed service now
    Stop,       // -e
    Foreground, // -d (with console) or -r (without)
    Help,       // --help, where the backend supports it
};

constexpr RTS_UI32 kStartTypeAuto = 2;
constexpr RTS_UI32 kStartTypeDemand = 3;

struct HostOptions {
    HostAction action = HostAction::Dispatch;
    bool bWithConsole = false;             // Foreground: -d rather than -r
    RTS_UI32 ulStartType = kStartTypeAuto; // --startmode=auto|demand
    const char *pszAccount = nullptr;      // -l: points into argv
    const char *pszPassword = nullptr;     // -p: points into argv
    std::vector<std::string> warnings;     // tokens that were ignored, and why
};

// Scans argv[1..argc-1]. bHelpSupported lets "--help" select HostAction::Help.
HostOptions HostScanOptions(int argc, char **argv, bool bHelpSupported);

// The option summary printed by --help and after a failed dispatch.
const char *HostUsageText();

} // namespace kestrel::host

#endif
