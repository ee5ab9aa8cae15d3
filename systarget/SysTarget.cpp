// SysTarget (CmpId 274): who this device is. The numbers are constants of the
// target; the names come from section "SysTarget" of the settings, read
// through the imported settings functions on every call (never cached), with
// fixed fallbacks. Also the component frame: entry, exports, imports, hooks.
#include "SysTargetItf.h"

#include <cstring>

#include "CMUtlItf.h"
#include "CmpSettingsItf.h"
#include "SysTargetOs.h"

namespace {

constexpr const char *kSection = "SysTarget";
constexpr const char *kKeyNodeNameUnicode = "NodeNameUnicode";
constexpr const char *kKeyNodeName = "NodeName";
constexpr const char *kKeyTargetVersion = "TargetVersion";
constexpr const char *kKeyDeviceNameUnicode = "DeviceNameUnicode";
constexpr const char *kKeyDeviceName = "DeviceName";
constexpr const char *kKeyVendorNameUnicode = "VendorNameUnicode";
constexpr const char *kKeyVendorName = "VendorName";

constexpr const char *kDefaultDeviceName = "KESTREL Control Win V3";
constexpr const char *kDefaultVendorName = "Norvale GmbH";
constexpr const char *kNoName = "<NoName>";
constexpr const char *kEllipsis = "...";

// The 8-bit name settings hold up to 100 characters.
constexpr RTS_SIZE kNarrowNameSize = 100 + 1;

const RTS_WCHAR kEmptyWide[1] = {0};

// API slots of the settings component; empty until imported, tested before use.
using PfGetStringValue = decltype(&SettgGetStringValue);
using PfGetWStringValue = decltype(&SettgGetWStringValue);
using PfGetIntValue = decltype(&SettgGetIntValue);
PfGetStringValue s_pfSettgGetStringValue = nullptr;
PfGetWStringValue s_pfSettgGetWStringValue = nullptr;
PfGetIntValue s_pfSettgGetIntValue = nullptr;

// Functions of the component manager handed to the entry.
PF_CM_REGISTER_API s_pfCMRegisterAPI = nullptr;
PF_CM_GET_API2 s_pfCMGetAPI2 = nullptr;

PF_SYSTARGET_COMPUTERNAME s_pfComputerName = &SysTargetOsGetComputerName;

RTS_I32 ClampToI32(RTS_SIZE n) {
    return n > 0x7FFFFFFFu ? 0x7FFFFFFF : static_cast<RTS_I32>(n);
}

// Reads a wide-string setting into the caller's buffer; on success the length
// (with terminator) goes to *pnMaxLength. A null buffer only asks.
RTS_RESULT ReadWide(const char *pszKey, RTS_WCHAR *pwszName, RTS_SIZE *pnMaxLength) {
    if (s_pfSettgGetWStringValue == nullptr)
        return ERR_NO_COMPONENT;
    RTS_I32 len = ClampToI32(*pnMaxLength);
    RTS_RESULT result = s_pfSettgGetWStringValue(kSection, pszKey, pwszName, &len, kEmptyWide);
    if (result == ERR_OK)
        *pnMaxLength = len < 0 ? 0 : static_cast<RTS_SIZE>(len);
    return result;
}

// Reads an 8-bit setting of up to 100 characters into value.
RTS_RESULT ReadNarrow(const char *pszKey, char (&value)[kNarrowNameSize]) {
    value[0] = '\0';
    if (s_pfSettgGetStringValue == nullptr)
        return ERR_NO_COMPONENT;
    RTS_I32 len = static_cast<RTS_I32>(kNarrowNameSize);
    return s_pfSettgGetStringValue(kSection, pszKey, value, &len, "");
}

// Converts an 8-bit name into the caller's wide buffer, limited to its
// capacity; the length reported is the one needed, with the terminator.
void ConvertNarrow(const char *pszText, RTS_WCHAR *pwszName, RTS_SIZE *pnMaxLength) {
    if (pwszName != nullptr && *pnMaxLength > 0)
        CMUtlStrToW(pszText, pwszName, *pnMaxLength);
    *pnMaxLength = std::strlen(pszText) + 1;
}

// Device and vendor name: wide key, then 8-bit key, then the fallback text.
RTS_RESULT GetNameWithFallback(const char *pszWideKey, const char *pszKey, const char *pszFallback, RTS_WCHAR *pwszName,
                               RTS_SIZE *pnMaxLength) {
    if (pnMaxLength == nullptr)
        return ERR_PARAMETER;
    if (ReadWide(pszWideKey, pwszName, pnMaxLength) == ERR_OK)
        return ERR_OK;
    char value[kNarrowNameSize];
    const char *text = ReadNarrow(pszKey, value) == ERR_OK ? value : pszFallback;
    ConvertNarrow(text, pwszName, pnMaxLength);
    return ERR_OK;
}

RTS_RESULT WriteConstant(RTS_UI32 *pulValue, RTS_UI32 ulValue) {
    if (pulValue == nullptr)
        return ERR_PARAMETER;
    *pulValue = ulValue;
    return ERR_OK;
}

} // namespace

extern "C" {

void SysTargetSetComputerNameSource(PF_SYSTARGET_COMPUTERNAME pfSource) {
    s_pfComputerName = pfSource != nullptr ? pfSource : &SysTargetOsGetComputerName;
}

RTS_RESULT SysTargetGetType(RTS_UI32 *pulType) {
    return WriteConstant(pulType, SYSTARGET_TYPE);
}
RTS_RESULT SysTargetGetId(RTS_UI32 *pulId) {
    return WriteConstant(pulId, SYSTARGET_ID);
}
RTS_RESULT SysTargetGetOperatingSystemId(RTS_UI32 *pulId) {
    return WriteConstant(pulId, SYSTARGET_OS_ID);
}
RTS_RESULT SysTargetGetProcessorId(RTS_UI32 *pulId) {
    return WriteConstant(pulId, SYSTARGET_PROCESSOR_ID);
}

RTS_RESULT SysTargetGetDeviceMask(RTS_UI16 *pusMask) {
    if (pusMask == nullptr)
        return ERR_PARAMETER;
    *pusMask = SYSTARGET_DEVICE_MASK;
    return ERR_OK;
}

RTS_RESULT SysTargetGetVersion(RTS_UI32 *pulVersion) {
    if (pulVersion == nullptr)
        return ERR_PARAMETER;
    // The incoming value is the default of the read; a failed read (no key,
    // no settings component) reports the system's own version instead.
    RTS_I32 value = static_cast<RTS_I32>(*pulVersion);
    if (s_pfSettgGetIntValue != nullptr &&
        s_pfSettgGetIntValue(kSection, kKeyTargetVersion, &value, static_cast<RTS_I32>(*pulVersion)) == ERR_OK)
        *pulVersion = static_cast<RTS_UI32>(value);
    else
        *pulVersion = RTS_SYSTEM_VERSION;
    return ERR_OK;
}

RTS_RESULT SysTargetGetConfiguredNodeName(RTS_WCHAR *pwszName, RTS_SIZE *pnMaxLength) {
    if (pnMaxLength == nullptr)
        return ERR_PARAMETER;
    if (ReadWide(kKeyNodeNameUnicode, pwszName, pnMaxLength) == ERR_OK)
        return ERR_OK;
    char value[kNarrowNameSize];
    RTS_RESULT result = ReadNarrow(kKeyNodeName, value);
    if (result != ERR_OK)
        return result;
    ConvertNarrow(value, pwszName, pnMaxLength);
    return ERR_OK;
}

RTS_RESULT SysTargetGetNodeName(RTS_WCHAR *pwszName, RTS_SIZE *pnMaxLength) {
    if (pnMaxLength == nullptr)
        return ERR_PARAMETER;
    RTS_SIZE capacity = *pnMaxLength;
    RTS_SIZE configured = capacity;
    if (SysTargetGetConfiguredNodeName(pwszName, &configured) == ERR_OK) {
        *pnMaxLength = configured;
        return ERR_OK;
    }

    char name[SYSTARGET_COMPUTERNAME_SIZE] = {};
    if (s_pfComputerName(name, sizeof(name)) != ERR_OK) {
        // "<NoName>" only when it fits; otherwise nothing but an empty text.
        RTS_SIZE needed = std::strlen(kNoName) + 1;
        if (pwszName == nullptr) {
            *pnMaxLength = needed;
        } else if (capacity >= needed) {
            CMUtlStrToW(kNoName, pwszName, capacity);
            *pnMaxLength = needed;
        } else {
            if (capacity > 0)
                pwszName[0] = 0;
            *pnMaxLength = 1;
        }
        return ERR_OK;
    }
    name[sizeof(name) - 1] = '\0';

    RTS_SIZE len = std::strlen(name);
    if (pwszName == nullptr || capacity == 0) {
        *pnMaxLength = len + 1;
        return ERR_OK;
    }
    // A name at least as long as the buffer is cut to (capacity - 3)
    // characters and marked with "..."; the conversion below is limited to
    // the capacity and so keeps only what fits with the terminator.
    if (len >= capacity && capacity >= std::strlen(kEllipsis)) {
        name[capacity - std::strlen(kEllipsis)] = '\0';
        std::strcat(name, kEllipsis);
    }
    CMUtlStrToW(name, pwszName, capacity);
    *pnMaxLength = CMUtlwstrlen(pwszName) + 1;
    return ERR_OK;
}

RTS_RESULT SysTargetGetDeviceName(RTS_WCHAR *pwszName, RTS_SIZE *pnMaxLength) {
    return GetNameWithFallback(kKeyDeviceNameUnicode, kKeyDeviceName, kDefaultDeviceName, pwszName, pnMaxLength);
}

RTS_RESULT SysTargetGetVendorName(RTS_WCHAR *pwszName, RTS_SIZE *pnMaxLength) {
    return GetNameWithFallback(kKeyVendorNameUnicode, kKeyVendorName, kDefaultVendorName, pwszName, pnMaxLength);
}

} // extern "C"

// The IEC-callable twins, one row each: IEC name, record shape, C function,
// signature. The same list defines the functions and the IEC export table.
#define SYSTARGET_IEC_FUNCTIONS(X)                                                                                     \
    X(systargetgetvendorname, Name, SysTargetGetVendorName, 0xC7C8EF60u)                                               \
    X(systargetgetvendorname2, Name2, SysTargetGetVendorName, 0xECA5949Du)                                             \
    X(systargetgetversion, Value, SysTargetGetVersion, 0x03C80949u)                                                    \
    X(systargetgetversion2, Value2, SysTargetGetVersion, 0x183560B4u)                                                  \
    X(systargetgetnodename, Name, SysTargetGetNodeName, 0xA0044621u)                                                   \
    X(systargetgetnodename2, Name2, SysTargetGetNodeName, 0x72B60F75u)                                                 \
    X(systargetgetdevicename, Name, SysTargetGetDeviceName, 0x2DEFEA3Du)                                               \
    X(systargetgetdevicename2, Name2, SysTargetGetDeviceName, 0x332F9AF1u)                                             \
    X(systargetgetid, Value, SysTargetGetId, 0x02ED027Au)                                                              \
    X(systargetgetid2, Value2, SysTargetGetId, 0xEA1E39C4u)                                                            \
    X(systargetgettype, Value, SysTargetGetType, 0x4AD38850u)                                                          \
    X(systargetgettype2, Value2, SysTargetGetType, 0x5F20D079u)                                                        \
    X(systargetgetprocessorid, Value, SysTargetGetProcessorId, 0x1C22A79Fu)                                            \
    X(systargetgetoperatingsystemid, Value, SysTargetGetOperatingSystemId, 0xC12147F5u)

namespace {

// Calls of the C function with the record's fields, one per record shape.
template <auto Fn> void CallValue(SysTargetIecValue *p) {
    p->Result = Fn(p->pulValue);
}
template <auto Fn> void CallValue2(SysTargetIecValue2 *p) {
    p->Result = Fn(p->pulValue);
}
template <auto Fn> void CallName(SysTargetIecName *p) {
    p->Result = Fn(p->pwszName, p->pnMaxLength);
}
template <auto Fn> void CallName2(SysTargetIecName2 *p) {
    p->Result = Fn(p->pwszName, p->pnMaxLength);
}

} // namespace

#define SYSTARGET_DEFINE_IEC(iecName, shape, cFunction, signature)                                                     \
    extern "C" void iecName(SysTargetIec##shape *p) {                                                                  \
        if (p != nullptr)                                                                                              \
            Call##shape<&cFunction>(p);                                                                                \
    }
SYSTARGET_IEC_FUNCTIONS(SYSTARGET_DEFINE_IEC)
#undef SYSTARGET_DEFINE_IEC

namespace {

#define SYSTARGET_IEC_ROW(iecName, shape, cFunction, signature)                                                        \
    RTS_EXPORT_ROW(iecName, #iecName, signature, RTS_SYSTEM_VERSION),
const ExportEntry s_iecExports[] = {SYSTARGET_IEC_FUNCTIONS(SYSTARGET_IEC_ROW) RTS_EXPORT_END};
#undef SYSTARGET_IEC_ROW

const ExportEntry s_cExports[] = {
    RTS_EXPORT_FN(SysTargetGetType),
    RTS_EXPORT_FN(SysTargetGetId),
    RTS_EXPORT_FN(SysTargetGetOperatingSystemId),
    RTS_EXPORT_FN(SysTargetGetProcessorId),
    RTS_EXPORT_FN(SysTargetGetDeviceMask),
    RTS_EXPORT_FN(SysTargetGetVersion),
    RTS_EXPORT_FN(SysTargetGetConfiguredNodeName),
    RTS_EXPORT_FN(SysTargetGetNodeName),
    RTS_EXPORT_FN(SysTargetGetDeviceName),
    RTS_EXPORT_FN(SysTargetGetVendorName),
    RTS_EXPORT_END};

// The IEC table goes first, marked as external library; the C table only
// when that worked.
RTS_RESULT ExportFunctions() {
    if (s_pfCMRegisterAPI == nullptr)
        return ERR_NOT_INITIALIZED;
    RTS_RESULT result = s_pfCMRegisterAPI(s_iecExports, nullptr, 1, CMPID_SysTarget);
    if (result != ERR_OK)
        return result;
    return s_pfCMRegisterAPI(s_cExports, nullptr, 0, CMPID_SysTarget);
}

template <typename F> void ImportOptional(const char *pszName, F &slot) {
    RTS_VOID_FCTPTR fn = nullptr;
    if (s_pfCMGetAPI2 != nullptr && s_pfCMGetAPI2(pszName, &fn, CM_IMPORT_OPTIONAL, 0, 0) == ERR_OK)
        slot = reinterpret_cast<F>(fn);
    else
        slot = nullptr;
}

// Every import is optional: without the settings component the fallbacks
// answer.
RTS_RESULT ImportFunctions() {
    ImportOptional("SettgGetStringValue", s_pfSettgGetStringValue);
    ImportOptional("SettgGetWStringValue", s_pfSettgGetWStringValue);
    ImportOptional("SettgGetIntValue", s_pfSettgGetIntValue);
    return ERR_OK;
}

RTS_UI32 GetVersion() {
    return RTS_SYSTEM_VERSION;
}

RTS_RESULT HookFunction(RTS_UI32 ulHook, RTS_UINTPTR, RTS_UINTPTR) {
    // The slots lose their meaning once the settings component is gone.
    if (ulHook == CH_EXIT2) {
        s_pfSettgGetStringValue = nullptr;
        s_pfSettgGetWStringValue = nullptr;
        s_pfSettgGetIntValue = nullptr;
    }
    return ERR_OK;
}

} // namespace

extern "C" RTS_RESULT SysTargetEntry(ComponentInitStruct *pInitStruct) {
    if (pInitStruct == nullptr)
        return ERR_PARAMETER;
    pInitStruct->CmpId = CMPID_SysTarget;
    pInitStruct->pfExportFunctions = &ExportFunctions;
    pInitStruct->pfImportFunctions = &ImportFunctions;
    pInitStruct->pfGetVersion = &GetVersion;
    pInitStruct->pfHookFunction = &HookFunction;
    pInitStruct->pfCreateInstance = nullptr;
    pInitStruct->pfDeleteInstance = nullptr;
    s_pfCMRegisterAPI = pInitStruct->pfCMRegisterAPI;
    s_pfCMGetAPI2 = pInitStruct->pfCMGetAPI2;
    return ERR_OK;
}
