// Making the provider known to the system and forgetting it again. On
// Windows: CNG's registration of the provider and its key storage function,
// and the configuration values in the registry. On Linux, which has no CNG:
// the configuration file that the provider reads.
#pragma once

#include <string>
#include <vector>

#include "default_configuration.h"

struct RegistrationResult {
    // What each step did, one line each, for stdout.
    std::vector<std::string> steps;
    // Why CNG did not take the registration though it said it did (or why
    // it could not be asked); empty when it did, or when there is no CNG.
    std::string cngUnavailable;
};

// Both throw ClientError when a step fails, after undoing what register had
// done; CNG's stubs are not failures but end in cngUnavailable.
RegistrationResult RegisterProvider(const DefaultConfiguration& configuration);
RegistrationResult UnregisterProvider(const DefaultConfiguration& configuration);
