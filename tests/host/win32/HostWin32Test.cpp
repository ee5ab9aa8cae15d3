// The Windows parts of the host: the resources against the portable table,
// the tray window procedure driven by its messages, the console Ctrl handler.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <windows.h>

#include "CMItf.h"
#include "Host.h"
#include "HostConfig.h"
#include "HostNames.h"
#include "HostOsWin32.h"

namespace kestrel::host {
namespace {

std::string OwnDirectory() {
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, sizeof(path));
    char *separator = std::strrchr(path, '\\');
    if (separator != nullptr)
        separator[1] = '\0';
    return path;
}

TEST(HostResources, StringTableMatchesTheCompiledInTable) {
    for (const HostStringRow *row = kHostStrings; row->ulId != 0; ++row) {
        char text[kServiceNameSize] = {};
        ASSERT_TRUE(HostOsLoadString(row->ulId, text, sizeof(text))) << row->ulId;
        EXPECT_STREQ(text, row->pszText) << row->ulId;
    }
    char text[16];
    EXPECT_FALSE(HostOsLoadString(99, text, sizeof(text)));
}

TEST(HostResources, ServiceNameLosesItsQuotes) {
    HostLoadServiceName();
    EXPECT_STREQ(HostGetState().serviceName, "KESTREL Control Win V3");
}

TEST(HostResources, TrayMenu) {
    HMENU menu = LoadMenuA(HostModuleHandle(), MAKEINTRESOURCEA(kMenuTray));
    ASSERT_NE(menu, nullptr);
    char text[64] = {};
    GetMenuStringA(menu, 0, text, sizeof(text), MF_BYPOSITION);
    EXPECT_STREQ(text, "{Context-Menu}");
    HMENU popup = GetSubMenu(menu, 0);
    ASSERT_NE(popup, nullptr);
    EXPECT_EQ(GetMenuItemCount(popup), 1);
    EXPECT_EQ(GetMenuItemID(popup, 0), kMenuCommandAbout);
    GetMenuStringA(popup, 0, text, sizeof(text), MF_BYPOSITION);
    EXPECT_STREQ(text, "About...");
    DestroyMenu(menu);
}

TEST(HostResources, ProductVersionOfTheExecutable) {
    for (const std::string &file : {OwnDirectory() + "KESTRELControl.exe", OwnDirectory() + "host_win32_test.exe"}) {
        char version[64] = "x";
        HostOsReadProductVersion(file.c_str(), version, sizeof(version));
        EXPECT_STREQ(version, "3.5.5.0") << file;
    }
    char version[64] = "x";
    HostOsReadProductVersion((OwnDirectory() + "no-such-file.exe").c_str(), version, sizeof(version));
    EXPECT_STREQ(version, "");
}

TEST(HostResources, PlatformIsNt) {
    bool bIsXp = true;
    EXPECT_TRUE(HostOsIsNtFamily(&bIsXp));
    EXPECT_FALSE(bIsXp);
}

TEST(HostResources, SystemTextsHaveNoLineBreak) {
    char text[kSystemTextSize];
    HostOsErrorText(ERROR_SERVICE_EXISTS, text, sizeof(text));
    EXPECT_GT(std::strlen(text), 0u);
    EXPECT_EQ(std::strchr(text, '\r'), nullptr);
    EXPECT_EQ(std::strchr(text, '\n'), nullptr);
}

// A message-only window whose procedure is the tray procedure.
class TrayWindow : public ::testing::Test {
  protected:
    void SetUp() override {
        WNDCLASSA windowClass{};
        windowClass.lpfnWndProc = &HostTrayWindowProc;
        windowClass.hInstance = HostModuleHandle();
        windowClass.lpszClassName = "KestrelTrayTest";
        RegisterClassA(&windowClass);
        window =
            CreateWindowA("KestrelTrayTest", "tray", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, HostModuleHandle(), nullptr);
        ASSERT_NE(window, nullptr) << GetLastError();
    }
    void TearDown() override {
        if (IsWindow(window))
            DestroyWindow(window);
    }
    HWND window = nullptr;
};

TEST_F(TrayWindow, QueryEndSessionAgreesAndEndSessionClearsTheSessionFlag) {
    EXPECT_EQ(SendMessageA(window, 0x11, 0, 0), 1);
    DWORD before = GetTickCount();
    EXPECT_TRUE(HostTraySessionActive());
    EXPECT_EQ(SendMessageA(window, 0x16, 1, 0), 0);
    EXPECT_FALSE(HostTraySessionActive());
    EXPECT_LE(HostTrayEndSessionTick() - before, 10000u);
}

void CALLBACK CloseMenu(HWND, UINT, UINT_PTR, DWORD) {
    EndMenu();
}

TEST_F(TrayWindow, IconMessagesAreAnsweredAndAClickShowsThePopupMenu) {
    EXPECT_EQ(SendMessageA(window, 0x1105, 3333, 0x200), 0); // mouse move
    EXPECT_EQ(SendMessageA(window, 0x1105, 1234, 0x202), 0); // another icon
    // The menu's modal loop ends on a timer; the procedure then answers 0.
    UINT_PTR timer = SetTimer(window, 1, 100, &CloseMenu);
    EXPECT_EQ(SendMessageA(window, 0x1105, 3333, 0x202), 0);
    SetTimer(window, 1, 100, &CloseMenu);
    EXPECT_EQ(SendMessageA(window, 0x1105, 3333, 0x204), 0);
    KillTimer(window, timer);
}

TEST_F(TrayWindow, OtherMessagesGoToTheDefaultProcedure) {
    SendMessageA(window, WM_SETTEXT, 0, reinterpret_cast<LPARAM>("renamed"));
    char text[32] = {};
    GetWindowTextA(window, text, sizeof(text));
    EXPECT_STREQ(text, "renamed");
}

// Both set the component manager's exit flag, which stays set: one test.
TEST_F(TrayWindow, QuitAndCtrlCStopTheRuntime) {
    EXPECT_EQ(HostConsoleCtrlHandler(CTRL_CLOSE_EVENT), FALSE);
    EXPECT_EQ(HostConsoleCtrlHandler(CTRL_LOGOFF_EVENT), FALSE);
    EXPECT_EQ(CMGetExit(), 0);
    EXPECT_EQ(SendMessageA(window, 0x12, 0, 0), 1);
    EXPECT_FALSE(IsWindow(window));
    EXPECT_NE(CMGetExit(), 0);
    EXPECT_EQ(HostConsoleCtrlHandler(CTRL_C_EVENT), TRUE);
    EXPECT_EQ(HostConsoleCtrlHandler(CTRL_BREAK_EVENT), TRUE);
}

} // namespace
} // namespace kestrel::host
