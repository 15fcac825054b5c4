#pragma once

#include <functional>
#include <optional>

#include <p11-kit/pkcs11.h>

#include "secret_buffer.h"

namespace quelm {

enum class OutputOperation { kSign, kEncrypt, kDecrypt, kSignFinal, kEncryptFinal, kDecryptFinal };

// Produces the output of a single-call operation so that the backend never keeps an operation
// open for a length query or a too-small buffer. The finished result waits here for the next
// call of the same operation on the session; it may be a plaintext, so it is wiped when it is
// handed out or discarded.
class KeptOutput {
public:
    using BackendCall = std::function<CK_RV(CK_BYTE_PTR out, CK_ULONG_PTR out_len)>;

    CK_RV deliver(OutputOperation operation, const CK_BYTE* input, CK_ULONG input_len,
                  CK_BYTE_PTR out, CK_ULONG_PTR out_len, const BackendCall& backend);
    void discard();

private:
    CK_RV hand_out(CK_BYTE_PTR out, CK_ULONG_PTR out_len);
    CK_RV finish_in_backend(CK_ULONG size_hint, const BackendCall& backend, SecretBuffer& result);

    std::optional<OutputOperation> operation_;
    SecretBuffer input_;
    SecretBuffer result_;
};

}  // namespace quelm
