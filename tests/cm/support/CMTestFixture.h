// The fixture of the component manager's tests. The CM is process-global: every test starts from
// a clean CMInit3 with the three service doubles at the head of the component list and ends with
// CMExit, so that tests do not see each other's components.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "CMHost.h"
#include "CMInternal.h"
#include "CMItf.h"
#include "FakeServices.h"
#include "TestHost.h"

namespace kestrel::cmtest {

// The hooks of a start-up that runs through CMInitEnd, from hook 1 on.
inline const std::vector<RTS_UI32> kStartHooks = {1, 8, 2, 3, 7, 4, 500, 5, 6, 1000};

class CMTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetFakes();
        R().ResetAll();
        cm::RegistryUseCache(true);
    }

    void TearDown() override {
        if (running_)
            CMExit();
        running_ = false;
        CMSetLinkedComponent("SysTarget", nullptr);
        CMSetLinkedComponent("SysFile", nullptr);
        CMSetLinkedComponent("CmpMemPool", &CmpMemPoolEntry);
        ResetFakes();
    }

    // The linked-in test components as list entries; bSystem puts them into the system pass.
    static ComponentListEntry CmpA(RTS_UINTPTR bSystem = 0) { return {"TestCmpA", &TestCmpAEntry, bSystem}; }
    static ComponentListEntry CmpB(RTS_UINTPTR bSystem = 0) { return {"TestCmpB", &TestCmpBEntry, bSystem}; }
    static ComponentListEntry CmpC(RTS_UINTPTR bSystem = 0) { return {"TestCmpC", &TestCmpCEntry, bSystem}; }
    static ComponentListEntry CmpD(RTS_UINTPTR bSystem = 0) { return {"TestCmpD", &TestCmpDEntry, bSystem}; }

    // The service doubles first (CmpLog and CmpSettings supply the basic components of those names,
    // SysTestServices comes in with the system pass), then the test's own entries.
    static std::vector<ComponentListEntry> List(std::initializer_list<ComponentListEntry> extra,
                                                bool bWithServices = true) {
        std::vector<ComponentListEntry> list;
        if (bWithServices) {
            list.push_back({"CmpLog", &FakeLogEntry, 0});
            list.push_back({"CmpSettings", &FakeSettingsEntry, 0});
            list.push_back({"SysTestServices", &FakeServicesEntry, 0});
        }
        list.insert(list.end(), extra.begin(), extra.end());
        list.push_back({nullptr, nullptr, 0});
        return list;
    }

    RTS_RESULT Start(std::initializer_list<ComponentListEntry> extra, RTS_UI32 ulFlags = CM_INIT_SETTINGS_OPTIONAL,
                     const char *pszFile = nullptr, bool bWithServices = true) {
        list_ = List(extra, bWithServices);
        running_ = true;
        return CMInit3(pszFile, list_.data(), ulFlags);
    }

    RTS_RESULT Stop() {
        running_ = false;
        return CMExit();
    }

    static ComponentInfo *Find(const char *pszName) {
        RTS_RESULT result = ERR_OK;
        ComponentInfo *p = CMGetComponentByName(pszName, &result);
        return result == ERR_OK ? p : nullptr;
    }

    // The names of the table's records, in table order.
    static std::vector<std::string> Names() {
        std::vector<std::string> names;
        for (ComponentInfo *p = CMGetFirstComponent(nullptr); p != nullptr; p = CMGetNextComponent(p, nullptr))
            names.push_back(p->pszName);
        return names;
    }

    // Exactly one log line of the CM with that info id, and what it says.
    static void ExpectLog(RTS_UI32 ulInfoId, RTS_UI32 ulClass, RTS_RESULT errorId, const std::string &text) {
        std::vector<LogLine> lines = F().LogWithInfo(ulInfoId);
        ASSERT_EQ(1u, lines.size()) << "info " << ulInfoId;
        EXPECT_EQ(text, lines[0].text);
        EXPECT_EQ(ulClass, lines[0].ulClass) << text;
        EXPECT_EQ(errorId, lines[0].errorId) << text;
        EXPECT_EQ(CMPID_CM, lines[0].cmpId) << text;
    }

    std::vector<ComponentListEntry> list_;
    bool running_ = false;
};

} // namespace kestrel::cmtest
