// Computer name on Windows: GetComputerNameA into a buffer of at most 16
// characters (15 plus the terminator).
#include "SysTargetOs.h"

#include <windows.h>

extern "C" RTS_RESULT SysTargetOsGetComputerName(char *pszName, RTS_SIZE ulSize) {
    if (pszName == nullptr || ulSize == 0)
        return ERR_PARAMETER;
    char name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD len = sizeof(name);
    if (!GetComputerNameA(name, &len))
        return ERR_FAILED;
    RTS_SIZE limit = ulSize < SYSTARGET_COMPUTERNAME_SIZE ? ulSize : SYSTARGET_COMPUTERNAME_SIZE;
    RTS_SIZE n = len;
    if (n > limit - 1)
        n = limit - 1;
    memcpy(pszName, name, n);
    pszName[n] = '\0';
    return ERR_OK;
}
