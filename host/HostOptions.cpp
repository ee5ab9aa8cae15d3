// Option scanning. Only the second character of an option token counts; the
// rest of the token is ignored except for the values of -l, -p and
// --startmode. -d, -r and -s end the scan; a later -i, -u or -e replaces an
// earlier one. Ignored tokens are reported as warnings, never as errors.
#include "HostOptions.h"

#include <cstring>

namespace kestrel::host {

namespace {

constexpr const char *kStartModePrefix = "startmode=";

// The value of -l/-p: the rest of the token, else the next token (consumed).
// A trailing option without a value gives null and stops the scan.
const char *TakeValue(int argc, char **argv, int &i) {
    const char *rest = argv[i] + 2;
    if (*rest != '\0')
        return rest;
    if (i + 1 < argc && argv[i + 1] != nullptr) {
        ++i;
        return argv[i];
    }
    return nullptr;
}

void ScanLongOption(const char *token, bool bHelpSupported, HostOptions &options) {
    const char *name = token + 2;
    size_t prefixLength = std::strlen(kStartModePrefix);
    if (std::strncmp(name, kStartModePrefix, prefixLength) == 0) {
        const char *value = name + prefixLength;
        if (std::strcmp(value, "auto") == 0)
            options.ulStartType = kStartTypeAuto;
        else if (std::strcmp(value, "demand") == 0)
            options.ulStartType = kStartTypeDemand;
        else
            options.warnings.push_back(std::string("Unknown start mode ignored (use auto or demand): ") + token);
        return;
    }
    if (bHelpSupported && std::strcmp(name, "help") == 0) {
        options.action = HostAction::Help;
        return;
    }
    options.warnings.push_back(std::string("Unknown option ignored: ") + token);
}

} // namespace

HostOptions HostScanOptions(int argc, char **argv, bool bHelpSupported) {
    HostOptions options;
    bool bHelp = false;
    bool bDone = false;
    for (int i = 1; !bDone && i < argc && argv[i] != nullptr; ++i) {
        const char *token = argv[i];
        if (token[0] != '-' && token[0] != '/')
            continue; // not an option; a configuration file name is picked up later
        switch (token[1]) {
        case '-': {
            HostAction before = options.action;
            ScanLongOption(token, bHelpSupported, options);
            if (options.action == HostAction::Help) {
                bHelp = true;
                options.action = before;
            }
            break;
        }
        case 'd':
        case 'r':
            options.action = HostAction::Foreground;
            options.bWithConsole = token[1] == 'd';
            bDone = true; // later tokens belong to the runtime
            break;
        case 'i':
            options.action = HostAction::Install;
            break;
        case 'u':
            options.action = HostAction::Uninstall;
            break;
        case 'e':
            options.action = HostAction::Stop;
            break;
        case 's':
            options.action = HostAction::Start;
            bDone = true; // the whole command line goes to the service
            break;
        case 'l':
        case 'p': {
            const char *value = TakeValue(argc, argv, i);
            bool bAccount = token[1] == 'l';
            if (value == nullptr) {
                options.warnings.push_back(std::string("Option ") + token +
                                           " has no value: " + (bAccount ? "no account" : "no password") + " is used");
                bDone = true;
                break;
            }
            (bAccount ? options.pszAccount : options.pszPassword) = value;
            break;
        }
        default:
            options.warnings.push_back(std::string("Unknown option ignored: ") + token);
            break;
        }
    }
    if (bHelp)
        options.action = HostAction::Help;
    return options;
}

const char *HostUsageText() {
    return "Usage: KESTRELControl [option ...] [file.cfg]\n"
           "  -d               run in the foreground with a console (Ctrl-C or Enter stops)\n"
           "  -r               run in the foreground without a console\n"
           "  -i               install the service\n"
           "  -u               uninstall the service (stops it first)\n"
           "  -s               start the installed service\n"
           "  -e               stop the installed service\n"
           "  -l ACCOUNT       account of the installed service (also -lACCOUNT)\n"
           "  -p PASSWORD      password of that account (also -pPASSWORD)\n"
           "  --startmode=auto|demand   start type of the installed service (default auto)\n"
           "  --help           print this text\n"
           "A token containing \".cfg\" names the configuration file beside the executable\n"
           "(default KESTRELControl.cfg). Without an option the process runs as a service.\n";
}

} // namespace kestrel::host
