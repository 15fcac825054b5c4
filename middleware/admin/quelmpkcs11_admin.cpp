// quelmpkcs11-admin: the administrator's view of the middleware's PIN retry counters.
//
//   quelmpkcs11-admin status            lists the tokens that have wrong tries on record
//   quelmpkcs11-admin unlock SERIAL     clears the wrong tries of one token
//
// It reads the same QUELMPKCS11_STATE and QUELMPKCS11_MAX_TRIES as the module.

#include <cstdio>
#include <cstring>
#include <string>

#include "retry_counter_store.h"
#include "settings.h"

namespace {

int usage() {
    std::fprintf(stderr,
                 "usage: quelmpkcs11-admin status\n"
                 "       quelmpkcs11-admin unlock [--serial] SERIAL\n");
    return 2;
}

int status(const quelm::RetryCounterStore& store, unsigned max_tries) {
    const auto counters = store.read();
    std::printf("state file: %s\nmaximum tries: %u\n", store.file().c_str(), max_tries);
    for (const auto& [token, failures] : counters) {
        std::printf("%s\t%u wrong %s%s\n", token.c_str(), failures, failures == 1 ? "try" : "tries",
                    failures >= max_tries ? ", locked" : "");
    }
    return 0;
}

int unlock(const quelm::RetryCounterStore& store, const std::string& serial) {
    auto counters = store.begin();
    const unsigned failures = counters.failures(serial);
    counters.set_failures(serial, 0);
    counters.commit();
    std::printf("%s: %u wrong %s cleared\n", serial.c_str(), failures,
                failures == 1 ? "try" : "tries");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage();
    const quelm::Settings settings = quelm::Settings::from_environment();
    const quelm::RetryCounterStore store(settings.state_dir);
    try {
        const std::string command = argv[1];
        if (command == "status" && argc == 2) return status(store, settings.max_tries);
        if (command == "unlock" && argc == 3) return unlock(store, argv[2]);
        if (command == "unlock" && argc == 4 && std::strcmp(argv[2], "--serial") == 0) {
            return unlock(store, argv[3]);
        }
        return usage();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quelmpkcs11-admin: %s\n", error.what());
        return 1;
    }
}
