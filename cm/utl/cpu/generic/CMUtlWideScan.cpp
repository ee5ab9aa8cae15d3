// Processors without known wider vector instructions: the portable forms
// stay in use.
#include "../../CMUtlWideScan.h"

namespace kestrel::cmutl {

ScanForms g_scanForms = {&StrICmpPortable, &SafeStrCpyPortable};

ScanForms WideScanForms() {
    return {nullptr, nullptr};
}

} // namespace kestrel::cmutl
