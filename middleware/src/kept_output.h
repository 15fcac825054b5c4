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

    // Starts the backend operation again with the same key and mechanism.
    using Restart = std::function<CK_RV()>;

    CK_RV deliver(OutputOperation operation, const CK_BYTE* input, CK_ULONG input_len,
                  CK_BYTE_PTR out, CK_ULONG_PTR out_len, const BackendCall& backend);
    void discard();

    // Whether a result, or a length, waits for the next call.
    bool holding() const { return operation_.has_value(); }

    // Keeps only the length of the output, for an operation the backend has already ended
    // without computing it. The next call with the same input and a buffer restarts the
    // operation and computes it then.
    void keep_length(OutputOperation operation, const CK_BYTE* input, CK_ULONG input_len,
                     CK_ULONG length, Restart restart);

private:
    CK_RV hand_out(CK_BYTE_PTR out, CK_ULONG_PTR out_len);
    CK_RV finish_in_backend(CK_ULONG size_hint, const BackendCall& backend, SecretBuffer& result);

    std::optional<OutputOperation> operation_;
    SecretBuffer input_;
    SecretBuffer result_;
    CK_ULONG length_only_ = 0;
    Restart restart_;
};

}  // namespace quelm
