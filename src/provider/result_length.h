// The value length that a property read reports through pcbResult.
#pragma once

#include "provider/ncrypt_provider.h"

// Writes the length on every way out of the operation that was given
// somewhere to put it; it stays 0 for a failure before the length is known.
class ResultLength {
public:
    explicit ResultLength(DWORD* pcbResult) : pcbResult_(pcbResult) {}
    ~ResultLength() {
        if (pcbResult_) *pcbResult_ = value;
    }
    ResultLength(const ResultLength&) = delete;
    ResultLength& operator=(const ResultLength&) = delete;

    DWORD value = 0;

private:
    DWORD* pcbResult_;
};
