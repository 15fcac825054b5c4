#include "token/rsa_pair.h"

#include "platform/secure_zero.h"

RSAPair::~RSAPair() {
    platform::SecureZero(rgbId, sizeof rgbId);
}
