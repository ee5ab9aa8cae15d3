// A small probe of the service control manager for the service test under
// wine (whose sc.exe has no "qc"): prints a service's configuration or
// state, or the system's text for an error number.
//   svcquery config NAME   BINARY_PATH_NAME=..., DISPLAY_NAME=..., START_TYPE=n, SERVICE_TYPE=n
//   svcquery state NAME    STATE=n
//   svcquery message CODE  the text of FormatMessageA, without its line break
// A failure prints ERROR=<GetLastError()> and exits with 2.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <windows.h>

namespace {

int Fail() {
    std::printf("ERROR=%lu\n", static_cast<unsigned long>(GetLastError()));
    return 2;
}

int Message(const char *code) {
    char text[512];
    DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                             static_cast<DWORD>(std::strtoul(code, nullptr, 10)), 0, text, sizeof(text), nullptr);
    while (n > 0 && (text[n - 1] == '\r' || text[n - 1] == '\n' || text[n - 1] == ' '))
        --n;
    std::printf("%.*s\n", static_cast<int>(n), text);
    return n > 0 ? 0 : 2;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3)
        return 3;
    if (std::strcmp(argv[1], "message") == 0)
        return Message(argv[2]);
    SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (manager == nullptr)
        return Fail();
    SC_HANDLE service = OpenServiceA(manager, argv[2], SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS);
    if (service == nullptr)
        return Fail();
    int result = 0;
    if (std::strcmp(argv[1], "config") == 0) {
        DWORD needed = 0;
        QueryServiceConfigA(service, nullptr, 0, &needed);
        std::vector<BYTE> buffer(needed + 16);
        auto *config = reinterpret_cast<QUERY_SERVICE_CONFIGA *>(buffer.data());
        if (!QueryServiceConfigA(service, config, static_cast<DWORD>(buffer.size()), &needed))
            return Fail();
        std::printf("BINARY_PATH_NAME=%s\nDISPLAY_NAME=%s\nSTART_TYPE=%lu\nSERVICE_TYPE=%lu\n",
                    config->lpBinaryPathName, config->lpDisplayName, static_cast<unsigned long>(config->dwStartType),
                    static_cast<unsigned long>(config->dwServiceType));
    } else if (std::strcmp(argv[1], "state") == 0) {
        SERVICE_STATUS status{};
        if (!QueryServiceStatus(service, &status))
            return Fail();
        std::printf("STATE=%lu\n", static_cast<unsigned long>(status.dwCurrentState));
    } else {
        result = 3;
    }
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return result;
}
