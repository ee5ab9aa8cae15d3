// POSIX: a module is loaded when dlopen with RTLD_NOLOAD finds it beside the program.
#include "../ModuleState.h"

#include <dlfcn.h>

namespace kestrel::test {

bool IsModuleLoaded(const std::string &name) {
    Dl_info info{};
    std::string dir;
    if (dladdr(reinterpret_cast<void *>(&IsModuleLoaded), &info) != 0 && info.dli_fname != nullptr)
        dir = std::string(info.dli_fname).substr(0, std::string(info.dli_fname).find_last_of('/') + 1);
    void *h = dlopen((dir + name + ".so").c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (h != nullptr)
        dlclose(h);
    return h != nullptr;
}

} // namespace kestrel::test
