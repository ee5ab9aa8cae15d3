// Process entry on Windows: a GUI-subsystem program, so no console exists
// unless the host allocates one. The core's result is the exit code as it
// stands (non-zero for success).
#include <stdlib.h>
#include <windows.h>

#include "Host.h"

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
    return static_cast<int>(kestrel::host::HostEntry(__argc, __argv));
}
