// A second process for the tests: it loads the middleware afresh and reports what it sees.
//   probe login PIN              the answer of the extended login entry
//   probe use-private LABEL PIN  whether a private key is found before login, and when it signs

#include <cstdio>
#include <cstring>
#include <string>

#include "module_fixture.h"

namespace {

CK_SESSION_HANDLE open_session() {
    CK_SLOT_ID slot = 0;
    CK_ULONG count = 1;
    CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
    if (p11().C_Initialize(nullptr) != CKR_OK ||
        p11().C_GetSlotList(CK_TRUE, &slot, &count) != CKR_OK ||
        p11().C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                            &session) != CKR_OK) {
        std::printf("setup failed\n");
    }
    return session;
}

CK_RV sign(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key) {
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    CK_RV rv = p11().C_SignInit(session, &mechanism, key);
    if (rv != CKR_OK) return rv;
    CK_BYTE data[20] = {}, signature[512];
    CK_ULONG length = sizeof signature;
    return p11().C_Sign(session, data, sizeof data, signature, &length);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    const CK_SESSION_HANDLE session = open_session();
    if (command == "login" && argc == 3) {
        std::printf("rv=0x%lx\n",
                    middleware().ExtendedLogin(session, CKU_USER, (CK_UTF8CHAR_PTR)argv[2],
                                               std::strlen(argv[2])));
    } else if (command == "use-private" && argc == 4) {
        CK_OBJECT_CLASS private_class = CKO_PRIVATE_KEY;
        CK_ATTRIBUTE query[] = {{CKA_CLASS, &private_class, sizeof private_class},
                                {CKA_LABEL, argv[2], std::strlen(argv[2])}};
        CK_OBJECT_HANDLE key = CK_INVALID_HANDLE;
        CK_ULONG found = 0;
        p11().C_FindObjectsInit(session, query, 2);
        p11().C_FindObjects(session, &key, 1, &found);
        p11().C_FindObjectsFinal(session);
        const CK_RV before = sign(session, key);
        const CK_RV login =
            p11().C_Login(session, CKU_USER, (CK_UTF8CHAR_PTR)argv[3], std::strlen(argv[3]));
        std::printf("found=%lu sign_before=0x%lx login=0x%lx sign_after=0x%lx\n", found, before,
                    login, sign(session, key));
    } else {
        std::printf("usage: probe login PIN | probe use-private LABEL PIN\n");
        return 2;
    }
    p11().C_Finalize(nullptr);
    return 0;
}
