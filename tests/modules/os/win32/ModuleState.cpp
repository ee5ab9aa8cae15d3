// Win32: a module is loaded when the process has a module handle for it.
#include "../ModuleState.h"

#include <windows.h>

namespace kestrel::test {

bool IsModuleLoaded(const std::string &name) {
    return GetModuleHandleA((name + ".dll").c_str()) != nullptr;
}

} // namespace kestrel::test
