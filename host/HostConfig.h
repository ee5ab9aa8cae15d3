/*
 * What the run procedure prepares before starting the component manager:
 * the legacy renames of old configuration files, the configuration file, and
 * the static component list (standard, or the one for an external target
 * visualisation).
 */
#ifndef KESTREL_HOST_CONFIG_H
#define KESTREL_HOST_CONFIG_H

#include <string>

#include "CmpItf.h"

namespace kestrel::host {

// Renames the configuration files of older product names in directory
// (ending with its separator); each rename fails silently when the source is
// missing or the target exists.
void HostLegacyRenames(const std::string &directory);

// The first argument from argv[1] on that contains ".cfg", else the default
// name with its double quotes removed. Meant as a plain file name.
std::string HostChooseConfigName(int argc, char **argv, const char *pszDefaultName);

// True when the path contains a '%' (a file name with one is used as it
// stands, but the host warns, because older hosts took it as a format).
bool HostConfigNameHasPercent(const std::string &path);

// The static component lists; both end with a null name.
extern const ComponentListEntry kHostStandardList[];
extern const ComponentListEntry kHostTargetVisuList[];

// The list for a configuration path: the target-visualisation list when the
// path contains "targetvisuextern.cfg", else the standard list.
const ComponentListEntry *HostChooseComponentList(const std::string &configPath);

// Removes every double-quote character in place, shifting the rest left.
void HostStripQuotes(char *pszText);

} // namespace kestrel::host

#endif
