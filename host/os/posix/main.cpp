// Process entry on POSIX. The core returns non-zero for success, as the
// Windows entry point does; the process exit status follows the POSIX rule
// (0 success, 1 failure) so that shells and systemd read it correctly.
#include "Host.h"

int main(int argc, char **argv) {
    return kestrel::host::HostEntry(argc, argv) != 0 ? 0 : 1;
}
