#include "provider/card_selection.h"

#include "provider/ncrypt_provider.h"

// There is no selection dialog yet, so the choice is always the user's
// cancellation; OpenProvider then ends with ERROR_CANCELLED.
int32_t SelectCard(platform::WideChar*) {
    return SCARD_E_CANCELLED_BY_USER;
}
