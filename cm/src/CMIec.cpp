// The IEC-callable twins of CM functions: each takes one pointer to its parameter record and
// writes the C function's result into the record's last field. A null record is ignored.
#include "CMPrivate.h"

#define KESTREL_CM_IEC_GUARD(p)                                                                                        \
    if ((p) == nullptr)                                                                                                \
    return

extern "C" {

void cmaddcomponent(cmaddcomponent_struct *p) {
    KESTREL_CM_IEC_GUARD(p);
    p->CMAddComponent = CMAddComponent(p->pTemplate, p->pResult);
}

void cmremovecomponent(cmremovecomponent_struct *p) {
    KESTREL_CM_IEC_GUARD(p);
    p->CMRemoveComponent = CMRemoveComponent(p->pComponent);
}

void cmloadcomponent(cmloadcomponent_struct *p) {
    KESTREL_CM_IEC_GUARD(p);
    p->CMLoadComponent = CMLoadComponent(p->pszName, p->pResult);
}

void cmunloadcomponent(cmunloadcomponent_struct *p) {
    KESTREL_CM_IEC_GUARD(p);
    p->CMUnloadComponent = CMUnloadComponent(p->pComponent);
}

void cmshutdown(cmshutdown_struct *p) {
    KESTREL_CM_IEC_GUARD(p);
    p->CMShutdown = CMSetExit();
}

void cmutlstricmp(cmutlstricmp_struct *p) {
    KESTREL_CM_IEC_GUARD(p);
    p->CMUtlStrICmp = CMUtlStrICmp(p->psz1, p->psz2);
}

void cmutlwstrcpy(cmutlwstrcpy_struct *p) {
    KESTREL_CM_IEC_GUARD(p);
    p->CMUtlwstrcpy = CMUtlwstrcpy(p->pwszDest, p->ulDestSize, p->pwszSrc);
}

void cmutlsafestrcpy(cmutlsafestrcpy_struct *p) {
    KESTREL_CM_IEC_GUARD(p);
    p->CMUtlSafeStrCpy = CMUtlSafeStrCpy(p->pszDest, p->ulDestSize, p->pszSrc);
}

void cmutlcwstrcpy(cmutlcwstrcpy_struct *p) {
    KESTREL_CM_IEC_GUARD(p);
    p->CMUtlcwstrcpy = CMUtlcwstrcpy(p->pwszDest, p->ulDestSize, p->pwszSrc);
}

void cmgetcomponentbyname(cmgetcomponentbyname_struct *p) {
    KESTREL_CM_IEC_GUARD(p);
    p->CMGetComponentByName = CMGetComponentByName(p->pszName, p->pResult);
}

void cmexitcomponent(cmexitcomponent_struct *p) {
    KESTREL_CM_IEC_GUARD(p);
    p->CMExitComponent = CMExitComponent(p->pComponent);
}

void cminitcomponent(cminitcomponent_struct *p) {
    KESTREL_CM_IEC_GUARD(p);
    p->CMInitComponent = CMInitComponent(p->pComponent);
}

} // extern "C"
