// Configuration file choice, legacy renames and quote stripping.
#include "HostConfig.h"

#include <cstring>
#include <vector>

#include "HostOs.h"

namespace kestrel::host {

namespace {

struct LegacyRename {
    const char *pszFrom;
    const char *pszTo;
};

const LegacyRename kLegacyRenames[] = {
    {"KestrelSP.cfg", "KestrelControl.cfg"},
    {"KestrelSP Axion.cfg", "KestrelAxion.cfg"},
    {"KestrelSPWithTargetVisu.cfg", "KestrelControl_WithTargetVisu.cfg"},
};

} // namespace

void HostLegacyRenames(const std::string &directory) {
    for (const LegacyRename &rename : kLegacyRenames)
        HostOsMoveFile((directory + rename.pszFrom).c_str(), (directory + rename.pszTo).c_str());
}

std::string HostChooseConfigName(int argc, char **argv, const char *pszDefaultName) {
    for (int i = 1; i < argc && argv[i] != nullptr; ++i)
        if (std::strstr(argv[i], ".cfg") != nullptr)
            return argv[i];
    std::string name = pszDefaultName != nullptr ? pszDefaultName : "";
    std::vector<char> buffer(name.begin(), name.end());
    buffer.push_back('\0');
    HostStripQuotes(buffer.data());
    return buffer.data();
}

bool HostConfigNameHasPercent(const std::string &path) {
    return path.find('%') != std::string::npos;
}

const ComponentListEntry *HostChooseComponentList(const std::string &configPath) {
    return configPath.find("targetvisuextern.cfg") != std::string::npos ? kHostTargetVisuList : kHostStandardList;
}

void HostStripQuotes(char *pszText) {
    if (pszText == nullptr)
        return;
    char *out = pszText;
    for (const char *in = pszText; *in != '\0'; ++in)
        if (*in != '"')
            *out++ = *in;
    *out = '\0';
}

} // namespace kestrel::host
