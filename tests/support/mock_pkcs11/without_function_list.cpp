// A shared library that loads but is no PKCS#11 module: it has no
// C_GetFunctionList.
extern "C" __attribute__((visibility("default"))) int NotAPkcs11Module() {
    return 0;
}
