#include "client_error.h"
#include "key_file.h"

KeyFile ReadKeyFile(const SecretBytes&, const std::string&, const Passphrase&, bool) {
    throw ClientError(exit_code::kUnavailable,
                      "reading PEM, DER and PKCS#12 key files is not available in the Windows "
                      "client; 'import --wrapped-by' takes blobs made by 'wrap'");
}

SecretBytes ReadPassphraseLine() {
    throw ClientError(exit_code::kUnavailable,
                      "--password-stdin is not available in the Windows client");
}
