// The host's string table. The service name keeps its embedded double quotes
// as the resource holds them; the entry point strips them.
#include "HostNames.h"

namespace kestrel::host {

const HostStringRow kHostStrings[] = {
    {kStringServiceName, "\"KESTREL Control Win V3\""},
    {kStringConfigFile, "KESTRELControl.cfg"},
    {0, nullptr},
};

const char *HostStringText(RTS_UI32 ulId) {
    for (const HostStringRow *row = kHostStrings; row->ulId != 0; ++row)
        if (row->ulId == ulId)
            return row->pszText;
    return nullptr;
}

} // namespace kestrel::host
