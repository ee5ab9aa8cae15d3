// The run procedure: working directory and host log, legacy renames, the
// configuration file, start-up of the component manager under an exception
// guard, the run loop that drives the communication-cycle hook about 100
// times a second, and the guarded shut-down. Start-up, the loop and
// shut-down all run on the calling thread.
#include <cstdio>
#include <cstring>
#include <string>

#include "CMItf.h"
#include "CmpLogItf.h"
#include "Host.h"
#include "HostConfig.h"
#include "HostLinked.h"
#include "HostLog.h"
#include "HostLoopTrace.h"

namespace kestrel::host {

namespace {

using PfLogAdd = decltype(&LogAdd);

constexpr RTS_UI32 kCommCycleHook = CH_COMM_CYCLE;

struct StartUp {
    const char *pszConfigPath;
    const ComponentListEntry *pList;
    RTS_RESULT initResult;
};

void GuardedStartUp(void *pContext) {
    auto *p = static_cast<StartUp *>(pContext);
    p->initResult = CMInit3(p->pszConfigPath, p->pList, CM_INIT_NO_INIT_END);
    CMInitEnd();
}

void GuardedExit(void *) {
    CMExit();
}

void GuardedCycle(void *) {
    CMCallHook(kCommCycleHook, 0, 0, 0);
}

PfLogAdd FetchLogAdd() {
    RTS_VOID_FCTPTR fn = nullptr;
    if (CMGetAPI("LogAdd", &fn, 0) != ERR_OK)
        return nullptr;
    return reinterpret_cast<PfLogAdd>(fn);
}

void LogException(PfLogAdd pfLogAdd, const char *pszText) {
    if (pfLogAdd != nullptr)
        pfLogAdd(LOG_STD_LOGGER, CMPID_CM, LOG_EXCEPTION, ERR_OK, 0, pszText);
}

// Reports why the runtime cannot run, then the final "stopped" status.
RTS_UI32 FailRun(const char *pszReason) {
    HostLogf("***ERROR***: Unable to run the %s Service: %s", HostGetState().serviceName, pszReason);
    return HostReportStatus(kStateStopped);
}

// Opening alone is not enough: a directory opens but cannot be read.
bool ConfigReadable(const std::string &configPath) {
    std::FILE *file = std::fopen(configPath.c_str(), "r");
    if (file == nullptr)
        return false;
    std::fgetc(file);
    bool bReadable = std::ferror(file) == 0;
    std::fclose(file);
    return bReadable;
}

void LogConfigFile(const std::string &configPath) {
    HostLog(std::string(74, '-').c_str());
    HostLogf("%s Service started", HostGetState().serviceName);
    HostLog("Config file:");
    HostLog(configPath.c_str()); // a text, never a format: the name may hold '%'
    if (HostConfigNameHasPercent(configPath))
        HostLog("*** Config file name contains '%': it is used exactly as written");
    if (!ConfigReadable(configPath))
        HostLog("*** Config file cannot be opened!");
}

// The loop ends on a key, an exit request or an exception in a pass;
// returns true when an exception ended it.
bool RunLoop(PfLogAdd pfLogAdd) {
    HostLoopTrace trace;
    for (;;) {
        if (HostOsStopRequested() && CMGetExit() == 0)
            CMSetExit();
        if (HostOsKeyPressed() || CMGetExit() != 0)
            break;
        HostOsLoopWait();
        if (!HostOsGuardedCall(&GuardedCycle, nullptr)) {
            LogException(pfLogAdd, "Exception occurred: CMCallHook");
            trace.Write();
            return true;
        }
        trace.Record();
        HostOsLoopPassDone();
    }
    trace.Write();
    return false;
}

} // namespace

RTS_UI32 HostRun(int argc, char **argv) {
    HostState &state = HostGetState();
    HostOsRunBegin();
    HostOsPinToFirstProcessor();

    char path[kModulePathSize];
    RTS_UI32 error = 0;
    if (!HostGetModulePath(path, kModulePathSize - 1, &error)) {
        char text[kSystemTextSize];
        HostOsErrorText(error, text, sizeof(text));
        RTS_UI32 result = FailRun(text);
        HostOsRunEnd();
        return result;
    }
    char *separator = std::strrchr(path, HostOsPathSeparator());
    if (separator == nullptr) {
        RTS_UI32 result = FailRun("Cannot determine the module location");
        HostOsRunEnd();
        return result;
    }
    separator[1] = '\0';
    std::string directory(path);
    HostOsSetCurrentDirectory(directory.c_str());
    HostLogSetPath(directory + state.serviceName + ".log");

    HostLegacyRenames(directory);

    char defaultName[kModulePathSize] = {};
    HostOsLoadString(kStringConfigFile, defaultName, sizeof(defaultName));
    std::string configPath = directory + HostChooseConfigName(argc, argv, defaultName);
    LogConfigFile(configPath);

    HostReportStatus(kStateStartPending);

    HostRegisterLinkedComponents();
    StartUp startUp{configPath.c_str(), HostChooseComponentList(configPath), ERR_OK};
    if (!HostOsGuardedCall(&GuardedStartUp, &startUp)) {
        LogException(FetchLogAdd(), "Exception occurred: CMInit");
        HostLog("*** Exception during CMInit() occurred!");
        HostOsGuardedCall(&GuardedExit, nullptr); // a second exception is swallowed
        RTS_UI32 result = HostReportStatus(kStateStopped);
        HostOsRunEnd();
        return result;
    }

    PfLogAdd pfLogAdd = FetchLogAdd();
    HostReportStatus(kStateRunning);

    RunLoop(pfLogAdd);

    // A key or an exception ended the loop: the key is consumed.
    if (startUp.initResult == ERR_OK && CMGetExit() == 0)
        HostOsConsumeKey();
    HostReportStatus(kStateStopPending);
    if (!HostOsGuardedCall(&GuardedExit, nullptr))
        HostLog("*** Exception during CMExit() occurred!");
    HostLogf("%s Service stopped", state.serviceName);

    RTS_UI32 result = HostReportStatus(kStateStopped);
    HostOsRunEnd();
    return result;
}

} // namespace kestrel::host
