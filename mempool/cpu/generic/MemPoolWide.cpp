// Processors without known wider stores: the export table keeps MemPoolGetBlock and
// MemPoolPutBlock with their 16-byte fills.
#include "../../MemPoolInternal.h"

namespace kestrel::mempool {

WideBlockFunctions GetWideBlockFunctions() {
    return {nullptr, nullptr};
}

} // namespace kestrel::mempool
