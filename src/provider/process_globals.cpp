// The process-wide objects, created when the library is loaded. They are
// defined in this one file because their order matters: each may use the
// ones above it. They live until the process ends; only the dialog log, a
// plain static, is destroyed when the library is unloaded.
#include "diag/debug_class.h"
#include "provider/provider_cache.h"

DebugClass* g_pTokenLog = new DebugClass(false);
DebugClass* g_pOpLog = new DebugClass(true);
ProviderCache* g_pProviderCache = new ProviderCache();
DebugClass g_dialogLog(false);
