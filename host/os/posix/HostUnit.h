/*
 * The systemd unit of the installed service: its name, its text and where it
 * is written. KESTREL_UNIT_DIR redirects the unit directory and
 * KESTREL_SYSTEMCTL the systemctl command (tests use both).
 */
#ifndef KESTREL_HOST_UNIT_H
#define KESTREL_HOST_UNIT_H

#include <string>
#include <vector>

#include "RtsTypes.h"

namespace kestrel::host {

constexpr const char *kDefaultUnitDirectory = "/etc/systemd/system";
constexpr unsigned kWatchdogSeconds = 30;

struct HostUnitFields {
    std::string serviceName;    // "KESTREL Control Win V3"
    std::string productVersion; // "3.5.5.0"
    std::string executable;     // full path
    std::string account;        // User=, empty for root
};

// The unit name: the service name with every run of characters that unit
// names cannot hold replaced by '-', plus ".service".
std::string HostUnitName(const std::string &serviceName);

// The unit file's text. Fails (empty result) for values with line breaks.
std::string HostUnitText(const HostUnitFields &unit);

// Quotes a value for ExecStart= and escapes systemd's specifiers.
std::string HostUnitQuote(const std::string &value);

std::string HostUnitDirectory();
std::string HostSystemctlCommand();

// Runs the systemctl command with the arguments; its exit status, or -1 when
// it could not be run (errno set).
int HostRunSystemctl(const std::vector<std::string> &args);

} // namespace kestrel::host

#endif
