// Whether a module file of the build (name without extension, e.g. "SysMem")
// is loaded in the test process; one implementation per OS.
#pragma once

#include <string>

namespace kestrel::test {
bool IsModuleLoaded(const std::string &name);
} // namespace kestrel::test
