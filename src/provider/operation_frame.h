// The trace frame of an exported operation, written to the operation log.
//
// Opening the frame also forgets the provider cache, because the cache may
// only carry a provider from one OpenProvider to the very next call. The
// three operations that must not touch it say so with Cache::kKeep.
#pragma once

#include "diag/trace_frame.h"
#include "provider/ncrypt_provider.h"
#include "provider/provider_cache.h"

class OperationFrame : public TraceFrame {
public:
    enum class Cache { kForget, kKeep };

    OperationFrame(std::string_view function, std::initializer_list<TraceArg> args,
                   Cache cache = Cache::kForget, std::string_view entrySuffix = " - Entry")
        : TraceFrame(*g_pOpLog, function, args, NTE_INTERNAL_ERROR, entrySuffix) {
        if (cache == Cache::kForget) g_pProviderCache->Forget();
    }
};
