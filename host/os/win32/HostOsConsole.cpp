// Console mode on Windows: a console of the host's own (allocated once, with
// the C runtime's standard streams moved onto it), the Ctrl handler, the
// final wait for a key, and the tray window procedure. The host registers
// no window class itself; a front end that shows the tray icon creates its
// window with this procedure.
#include <cstdio>

#include <windows.h>

#include "CMItf.h"
#include "Host.h"
#include "HostOsWin32.h"

namespace kestrel::host {

namespace {

constexpr UINT kTrayNotify = 0x1105;
constexpr WPARAM kTrayIconId = 3333;
constexpr LPARAM kLeftButtonUp = 0x202;
constexpr LPARAM kRightButtonDown = 0x204;
constexpr UINT kTrackFlags = 0x182; // return command, no notification, right button
constexpr UINT kEndSession = 0x16;
constexpr UINT kQueryEndSession = 0x11;
constexpr UINT kQuit = 0x12;

bool s_consoleAttached = false;
volatile bool s_sessionActive = true;
volatile DWORD s_endSessionTick = 0;

// Moves one C runtime stream onto the new console when its handle is valid.
void Redirect(DWORD stdHandle, const char *device, const char *mode, FILE *stream) {
    HANDLE handle = GetStdHandle(stdHandle);
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE)
        return;
    if (std::freopen(device, mode, stream) != nullptr)
        std::setvbuf(stream, nullptr, _IONBF, 0);
}

} // namespace

void HostOsAttachConsole() {
    if (s_consoleAttached)
        return;
    s_consoleAttached = true;
    AllocConsole();
    Redirect(STD_OUTPUT_HANDLE, "CONOUT$", "w", stdout);
    Redirect(STD_ERROR_HANDLE, "CONOUT$", "w", stderr);
    Redirect(STD_INPUT_HANDLE, "CONIN$", "r", stdin);
}

BOOL WINAPI HostConsoleCtrlHandler(DWORD dwCtrlType) {
    if (dwCtrlType == CTRL_C_EVENT || dwCtrlType == CTRL_BREAK_EVENT) {
        CMSetExit();
        return TRUE;
    }
    return FALSE; // closing the console window is left to the system
}

void HostOsInstallConsoleCtrlHandler() {
    SetConsoleCtrlHandler(&HostConsoleCtrlHandler, TRUE);
}

void HostOsConsoleFinish() {
    std::getchar();
}

LRESULT CALLBACK HostTrayWindowProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam) {
    switch (uMessage) {
    case kTrayNotify:
        if (wParam == kTrayIconId && (lParam == kLeftButtonUp || lParam == kRightButtonDown)) {
            // "About..." deliberately does nothing: the command is discarded.
            HMENU menu = LoadMenuA(HostModuleHandle(), MAKEINTRESOURCEA(kMenuTray));
            if (menu != nullptr) {
                POINT cursor{};
                GetCursorPos(&cursor);
                SetForegroundWindow(hWnd);
                TrackPopupMenu(GetSubMenu(menu, 0), kTrackFlags, cursor.x, cursor.y, 0, hWnd, nullptr);
            }
        }
        return 0;
    case kEndSession:
        s_sessionActive = false;
        s_endSessionTick = GetTickCount();
        return 0;
    case kQueryEndSession:
        return 1;
    case kQuit:
        DestroyWindow(hWnd);
        CMSetExit();
        return 1;
    default:
        return DefWindowProcA(hWnd, uMessage, wParam, lParam);
    }
}

bool HostTraySessionActive() {
    return s_sessionActive;
}
DWORD HostTrayEndSessionTick() {
    return s_endSessionTick;
}

} // namespace kestrel::host
