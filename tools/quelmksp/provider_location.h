// Which provider library the client loads when --provider does not say.
#pragma once

#include <string>

std::string DefaultProviderLibrary();
