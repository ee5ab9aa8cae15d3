// Registration of the linked-in components' entry functions. SysFile is
// linked in when the build has it (KESTREL_HOST_HAS_SYSFILE, set by CMake).
#include "HostLinked.h"

#include "CMHost.h"
#include "SysTargetItf.h"

#if KESTREL_HOST_HAS_SYSFILE
#include "SysFileItf.h"
#endif

namespace kestrel::host {

void HostRegisterLinkedComponents() {
    CMSetLinkedComponent("SysTarget", &SysTargetEntry);
#if KESTREL_HOST_HAS_SYSFILE
    CMSetLinkedComponent("SysFile", &SysFileEntry);
#endif
}

} // namespace kestrel::host
