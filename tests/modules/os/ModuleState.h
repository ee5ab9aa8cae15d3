// Whether a module file of the build is loaded in the test process; one
// implementation per OS in os/posix and os/win32.
#pragma once

#include <string>

namespace kestrel::test {

// name without extension, e.g. "SysMem".
bool IsModuleLoaded(const std::string &name);

} // namespace kestrel::test
