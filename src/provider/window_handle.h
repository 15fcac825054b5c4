// The window that owns the provider's dialogs, which a caller may set
// through a provider or a key property.
#pragma once

#include "provider/operation_frame.h"
#include "provider/provider_context.h"

// Copies up to 8 bytes over the start of the provider's window handle; a
// shorter input replaces only the low bytes. 0, or the failure traced.
SECURITY_STATUS SetWindowHandle(OperationFrame& frame, QUELMKSP_PROVIDER& provider,
                                const uint8_t* input, DWORD length);
