// Test access to the settings component's failure paths (linked statically
// into tests; not exported from the module).
#pragma once

#include "SettingsFileOs.h"

namespace kestrel::settings {

// The next replacement of the settings file stops as the fault says; one shot.
void SetNextWriteFault(WriteFault fault);

} // namespace kestrel::settings
