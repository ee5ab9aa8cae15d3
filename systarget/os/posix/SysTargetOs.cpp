// Computer name on POSIX systems: the host name, cut to the 15 characters a
// Windows computer name can have, so that both targets report names of the
// same length.
#include "SysTargetOs.h"

#include <cstring>

#include <unistd.h>

extern "C" RTS_RESULT SysTargetOsGetComputerName(char *pszName, RTS_SIZE ulSize) {
    if (pszName == nullptr || ulSize == 0)
        return ERR_PARAMETER;
    // gethostname may leave the buffer unterminated when the name is longer
    // than the buffer, so read into a buffer that holds any host name.
    char host[256] = {};
    if (gethostname(host, sizeof(host) - 1) != 0 || host[0] == '\0')
        return ERR_FAILED;
    RTS_SIZE limit = ulSize < SYSTARGET_COMPUTERNAME_SIZE ? ulSize : SYSTARGET_COMPUTERNAME_SIZE;
    RTS_SIZE n = std::strlen(host);
    if (n > limit - 1)
        n = limit - 1;
    std::memcpy(pszName, host, n);
    pszName[n] = '\0';
    return ERR_OK;
}
