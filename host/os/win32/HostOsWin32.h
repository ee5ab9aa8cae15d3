/*
 * Windows-only parts of the host backend that tests reach directly: the tray
 * window procedure with its session state, the console Ctrl handler, and the
 * conversion of system error numbers into texts.
 */
#ifndef KESTREL_HOST_OS_WIN32_H
#define KESTREL_HOST_OS_WIN32_H

#include <windows.h>

#include "RtsTypes.h"

namespace kestrel::host {

// Window procedure for a notification-area icon's window: a popup menu on
// the icon's clicks, end-session bookkeeping, and the runtime's stop.
LRESULT CALLBACK HostTrayWindowProc(HWND hWnd, UINT uMessage, WPARAM wParam, LPARAM lParam);
bool HostTraySessionActive();
DWORD HostTrayEndSessionTick();

// Console Ctrl handler: Ctrl-C and Ctrl-Break stop the runtime.
BOOL WINAPI HostConsoleCtrlHandler(DWORD dwCtrlType);

// The module whose resources the host loads (the executable).
HINSTANCE HostModuleHandle();

} // namespace kestrel::host

#endif
