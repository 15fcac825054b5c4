#include "provider/window_handle.h"

#include <cstring>

SECURITY_STATUS SetWindowHandle(OperationFrame& frame, QUELMKSP_PROVIDER& provider,
                                const uint8_t* input, DWORD length) {
    frame.Line("dwProperty = NCRYPT_WINDOW_HANDLE_PROPERTY");
    if (length > sizeof provider.hWnd)
        return frame.Fail(NTE_INVALID_PARAMETER, "cbInput is greater than the size of HWND");
    std::memcpy(&provider.hWnd, input, length);
    frame.log().WriteHex("Window handle set: ", Low32(provider.hWnd));
    return frame.Exit(ERROR_SUCCESS);
}
