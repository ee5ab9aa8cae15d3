// POSIX: a module is loaded when dlopen with RTLD_NOLOAD finds it.
#include "../ModuleState.h"

#include <dlfcn.h>

namespace kestrel::test {

bool IsModuleLoaded(const std::string &name) {
    Dl_info info{};
    std::string dir;
    if (dladdr(reinterpret_cast<void *>(&IsModuleLoaded), &info) != 0 && info.dli_fname != nullptr) {
        dir = info.dli_fname;
        dir = dir.substr(0, dir.find_last_of('/') + 1);
    }
    void *h = dlopen((dir + name + ".so").c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (h == nullptr)
        return false;
    dlclose(h);
    return true;
}

} // namespace kestrel::test
