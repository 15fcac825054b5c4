#include "token/object_list.h"

#include <cstdlib>

#include "provider/provider_context.h"

// The list is built from the token on demand; until key enumeration builds
// one, a provider has none and there is nothing in it to release.
void DiscardObjectList(QUELMKSP_PROVIDER& provider) {
    std::free(provider.pObjectList);
    provider.pObjectList = nullptr;
    provider.cObjectList = 0;
}
