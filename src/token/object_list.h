// The provider's list of the token's keys.
#pragma once

struct QUELMKSP_PROVIDER;

// Releases the list and every entry in it, and leaves the provider without
// one.
void DiscardObjectList(QUELMKSP_PROVIDER& provider);
