// The fixture of the component manager's tests. The CM is process-global: every test starts from
// a clean CMInit3 with the three service doubles at the head of the component list and ends with
// CMExit, so that tests do not see each other's components.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

#include "CMHost.h"
#include "CMInternal.h"
#include "CMItf.h"
#include "FakeServices.h"
#include "TestHost.h"

namespace kestrel::cmtest {

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

    std::vector<ComponentListEntry> list_;
    bool running_ = false;
};

} // namespace kestrel::cmtest
