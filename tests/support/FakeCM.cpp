// Stand-in component manager for unit tests of single components.
#include "FakeCM.h"

#include <stdexcept>

namespace kestrel::test {

FakeCM *FakeCM::current_ = nullptr;

FakeCM::FakeCM() {
    if (current_ != nullptr)
        throw std::logic_error("only one FakeCM at a time");
    current_ = this;
}

FakeCM::~FakeCM() { current_ = nullptr; }

RTS_RESULT FakeCM::Enter(PF_COMPONENT_ENTRY entry) {
    init_ = ComponentInitStruct{};
    init_.pfCMRegisterAPI = &RegisterAPI;
    init_.pfCMGetAPI = &GetAPI;
    init_.pfCMCallHook = &CallHook;
    init_.pfCMRegisterClass = &RegisterClass;
    init_.pfCMCreateInstance = &CreateInstance;
    init_.pfCMRegisterAPI2 = &RegisterAPI2;
    init_.pfCMGetAPI2 = &GetAPI2;
    init_.pfCMDeleteInstance2 = &DeleteInstance2;
    return entry(&init_);
}

RTS_RESULT FakeCM::CollectExports() {
    exports_.clear();
    iecExports_.clear();
    return init_.pfExportFunctions != nullptr ? init_.pfExportFunctions() : ERR_OK;
}

RTS_VOID_FCTPTR FakeCM::Export(const std::string &name) const {
    auto it = exports_.find(name);
    return it == exports_.end() ? nullptr : it->second.pfFunction;
}

RTS_RESULT FakeCM::Import() {
    requested_.clear();
    missing_.clear();
    return init_.pfImportFunctions != nullptr ? init_.pfImportFunctions() : ERR_OK;
}

RTS_RESULT FakeCM::Hook(RTS_UI32 hook, RTS_UINTPTR p1, RTS_UINTPTR p2) {
    return init_.pfHookFunction != nullptr ? init_.pfHookFunction(hook, p1, p2) : ERR_FAILED;
}

RTS_RESULT FakeCM::RegisterAPI(const void *tableOrName, RTS_VOID_FCTPTR fn, RTS_UI32 external, RTS_UI32 arg4) {
    if (tableOrName == nullptr)
        return ERR_NOT_INITIALIZED;
    if (fn != nullptr)
        return RegisterAPI2(static_cast<const char *>(tableOrName), fn, external, arg4, 0);
    for (auto *row = static_cast<const ExportEntry *>(tableOrName); row->pfFunction != nullptr; ++row)
        RegisterAPI2(row->pszName, row->pfFunction, external, row->ulSignature, row->ulVersion);
    return ERR_OK;
}

RTS_RESULT FakeCM::RegisterAPI2(const char *name, RTS_VOID_FCTPTR fn, RTS_UI32 external, RTS_UI32 sig,
                                RTS_UI32 ver) {
    if (current_ == nullptr || name == nullptr)
        return ERR_OK;
    auto &table = external != 0 ? current_->iecExports_ : current_->exports_;
    table.emplace(name, ExportEntry{fn, name, sig, ver}); // first row of a name wins
    return ERR_OK;
}

RTS_RESULT FakeCM::GetAPI(const char *name, RTS_VOID_FCTPTR *slot, RTS_UI32 sig) {
    return GetAPI2(name, slot, 0, sig, 0);
}

RTS_RESULT FakeCM::GetAPI2(const char *name, RTS_VOID_FCTPTR *slot, RTS_UI32 options, RTS_UI32 sig,
                           RTS_UI32 ver) {
    if (name == nullptr)
        return ERR_PARAMETER;
    if (current_ == nullptr)
        return ERR_FAILED;
    current_->requested_.emplace_back(name);
    if (current_->onLookup_)
        current_->onLookup_(name);
    auto it = current_->provided_.find(name);
    RTS_VOID_FCTPTR fn = it == current_->provided_.end() ? nullptr : it->second;
    if (slot != nullptr)
        *slot = fn;
    if (fn != nullptr)
        return ERR_OK;
    current_->missing_.emplace_back(name);
    return (options & CM_IMPORT_OPTIONAL) != 0 ? ERR_OK : ERR_FAILED;
}

RTS_RESULT FakeCM::CallHook(RTS_UI32, RTS_UINTPTR, RTS_UINTPTR, RTS_UI32) { return ERR_OK; }
RTS_HANDLE FakeCM::RegisterClass(CMPID, CLASSID) { return RTS_INVALID_HANDLE; }
RTS_HANDLE FakeCM::CreateInstance(CLASSID, RTS_RESULT *result) {
    if (result != nullptr)
        *result = ERR_NOTIMPLEMENTED;
    return nullptr;
}
RTS_RESULT FakeCM::DeleteInstance2(CLASSID, RTS_HANDLE) { return ERR_NOTIMPLEMENTED; }

} // namespace kestrel::test
