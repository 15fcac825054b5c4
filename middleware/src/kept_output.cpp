#include "kept_output.h"

#include <cstring>

namespace quelm {

void KeptOutput::discard() {
    operation_.reset();
    input_.wipe();
    result_.wipe();
    length_only_ = 0;
    restart_ = nullptr;
}

void KeptOutput::keep_length(OutputOperation operation, const CK_BYTE* input, CK_ULONG input_len,
                             CK_ULONG length, Restart restart) {
    discard();
    input_ = SecretBuffer(input, input ? input_len : 0);
    operation_ = operation;
    length_only_ = length;
    restart_ = std::move(restart);
}

CK_RV KeptOutput::deliver(OutputOperation operation, const CK_BYTE* input, CK_ULONG input_len,
                          CK_BYTE_PTR out, CK_ULONG_PTR out_len, const BackendCall& backend) {
    if (operation_) {
        // The result only answers a repeat of the call that produced it.
        if (*operation_ == operation && out_len && (input || input_len == 0) &&
            input_.equals(input, input_len)) {
            if (!length_only_) return hand_out(out, out_len);
            if (!out || *out_len < length_only_) {
                const CK_RV rv = out ? CKR_BUFFER_TOO_SMALL : CKR_OK;
                *out_len = length_only_;
                return rv;
            }
            const Restart restart = std::move(restart_);
            discard();
            if (const CK_RV rv = restart(); rv != CKR_OK) return rv;
            return deliver(operation, input, input_len, out, out_len, backend);
        }
        discard();
    }
    if (!out_len) return backend(out, out_len);

    CK_ULONG size_hint = 0;
    if (out) {
        CK_ULONG length = *out_len;
        const CK_RV rv = backend(out, &length);
        if (rv != CKR_BUFFER_TOO_SMALL) {
            *out_len = length;
            return rv;
        }
        size_hint = length;
    } else {
        const CK_RV rv = backend(nullptr, &size_hint);
        if (rv != CKR_OK) return rv;
    }

    SecretBuffer result;
    const CK_RV rv = finish_in_backend(size_hint, backend, result);
    if (rv != CKR_OK) return rv;
    operation_ = operation;
    input_ = SecretBuffer(input, input ? input_len : 0);
    result_ = std::move(result);
    return hand_out(out, out_len);
}

CK_RV KeptOutput::finish_in_backend(CK_ULONG size_hint, const BackendCall& backend,
                                    SecretBuffer& result) {
    // A backend may revise its estimate once it has the data; allow it to do so a few times.
    for (int attempt = 0; attempt < 3; ++attempt) {
        SecretBuffer buffer(size_hint ? size_hint : 1);
        CK_ULONG length = size_hint;
        const CK_RV rv = backend(buffer.data(), &length);
        if (rv == CKR_BUFFER_TOO_SMALL && length > size_hint) {
            size_hint = length;
            continue;
        }
        if (rv != CKR_OK) return rv;
        if (length > buffer.size()) return CKR_GENERAL_ERROR;
        buffer.shrink(length);
        result = std::move(buffer);
        return CKR_OK;
    }
    return CKR_GENERAL_ERROR;
}

CK_RV KeptOutput::hand_out(CK_BYTE_PTR out, CK_ULONG_PTR out_len) {
    const CK_ULONG size = static_cast<CK_ULONG>(result_.size());
    if (!out) {
        *out_len = size;
        return CKR_OK;
    }
    if (*out_len < size) {
        *out_len = size;
        return CKR_BUFFER_TOO_SMALL;
    }
    if (size) std::memcpy(out, result_.data(), size);
    *out_len = size;
    discard();
    return CKR_OK;
}

}  // namespace quelm
