// A stand-in for the component manager in unit tests of single components:
// it calls a component's entry function, lets it register its exports, and
// resolves its imports by name from functions the test provides. It follows
// the registry's rules only as far as unit tests need (exact names, the
// optional option); the real registry is tested with the component manager.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "CmpItf.h"

namespace kestrel::test {

class FakeCM {
  public:
    FakeCM();
    ~FakeCM();
    FakeCM(const FakeCM &) = delete;
    FakeCM &operator=(const FakeCM &) = delete;

    // Functions the component may import; replaced or removed between tests.
    void Provide(const std::string &name, RTS_VOID_FCTPTR fn) { provided_[name] = fn; }
    template <typename F> void Provide(const std::string &name, F *fn) {
        Provide(name, reinterpret_cast<RTS_VOID_FCTPTR>(fn));
    }
    void Withdraw(const std::string &name) { provided_.erase(name); }

    // Calls the entry function; returns its result. The init record stays
    // available through Init().
    RTS_RESULT Enter(PF_COMPONENT_ENTRY entry);
    const ComponentInitStruct &Init() const { return init_; }

    // Calls the component's export callback and returns what it registered.
    RTS_RESULT CollectExports();
    RTS_VOID_FCTPTR Export(const std::string &name) const;
    template <typename F> F *ExportAs(const std::string &name) const {
        return reinterpret_cast<F *>(Export(name));
    }
    const std::map<std::string, ExportEntry> &Exports() const { return exports_; }
    const std::map<std::string, ExportEntry> &IecExports() const { return iecExports_; }

    // Calls the component's import callback / hook callback.
    RTS_RESULT Import();
    RTS_RESULT Hook(RTS_UI32 hook, RTS_UINTPTR p1 = 0, RTS_UINTPTR p2 = 0);

    // Called at every import lookup before it is answered, as the real component manager's
    // lookups lock its table (through the memory pools) while a component imports.
    void OnLookup(std::function<void(const char *)> observer) { onLookup_ = std::move(observer); }

    // Names the component asked for, in order, and which were missing.
    const std::vector<std::string> &Requested() const { return requested_; }
    const std::vector<std::string> &Missing() const { return missing_; }

  private:
    static RTS_RESULT RegisterAPI(const void *tableOrName, RTS_VOID_FCTPTR fn, RTS_UI32 external, RTS_UI32 arg4);
    static RTS_RESULT RegisterAPI2(const char *name, RTS_VOID_FCTPTR fn, RTS_UI32 external, RTS_UI32 sig,
                                   RTS_UI32 ver);
    static RTS_RESULT GetAPI(const char *name, RTS_VOID_FCTPTR *slot, RTS_UI32 sig);
    static RTS_RESULT GetAPI2(const char *name, RTS_VOID_FCTPTR *slot, RTS_UI32 options, RTS_UI32 sig,
                              RTS_UI32 ver);
    static RTS_RESULT CallHook(RTS_UI32 hook, RTS_UINTPTR p1, RTS_UINTPTR p2, RTS_UI32 reverse);
    static RTS_HANDLE RegisterClass(CMPID cmpId, CLASSID classId);
    static RTS_HANDLE CreateInstance(CLASSID classId, RTS_RESULT *result);
    static RTS_RESULT DeleteInstance2(CLASSID classId, RTS_HANDLE instance);

    static FakeCM *current_;
    ComponentInitStruct init_{};
    std::map<std::string, RTS_VOID_FCTPTR> provided_;
    std::map<std::string, ExportEntry> exports_;
    std::map<std::string, ExportEntry> iecExports_;
    std::vector<std::string> requested_;
    std::vector<std::string> missing_;
    std::function<void(const char *)> onLookup_;
};

} // namespace kestrel::test
