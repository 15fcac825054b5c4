// The process-wide objects, created when the library is loaded. They are
// defined in this one file because their order matters: each may use the
// ones above it. They live until the process ends; only the dialog log, a
// plain static, is destroyed when the library is unloaded.
#include "diag/debug_class.h"
#include "pin/pin_manager.h"
#include "provider/card_monitor.h"
#include "provider/handle_registry.h"
#include "provider/provider_cache.h"
#include "provider/reader_ids.h"
#include "token/cryptoki_library.h"

std::string g_bindingError;

DebugClass* g_pTokenLog = new DebugClass(false);
DebugClass* g_pOpLog = new DebugClass(true);
HandleRegistry* g_pHandles = new HandleRegistry();
// Null when the token module cannot be bound; the library then refuses to
// load on Windows and refuses to hand out its table elsewhere.
CryptokiLibrary* g_pCryptoki = CreateCryptokiLibrary();
PinManager* g_pPinManager = new PinManager();
ProviderCache* g_pProviderCache = new ProviderCache();
CardMonitor* g_pCardMonitor = new CardMonitor();
ReaderIdMap* g_pReaderIds = new ReaderIdMap();
DebugClass g_dialogLog(false);
