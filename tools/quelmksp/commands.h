// The subcommands. Each parses its own arguments first, so that --help and
// usage errors never load the provider, and returns the exit code; failures
// are thrown as ClientError.
#pragma once

#include <string>
#include <vector>

struct Invocation {
    std::string library;
    std::vector<std::string> args;
    // --interactive: the provider may show the card selection dialog.
    bool interactive = false;
};

int RunInfo(const Invocation& invocation);
int RunKeys(const Invocation& invocation);
int RunSign(const Invocation& invocation);
int RunVerify(const Invocation& invocation);
int RunEncrypt(const Invocation& invocation);
int RunDecrypt(const Invocation& invocation);
int RunCreate(const Invocation& invocation);
int RunExport(const Invocation& invocation);
int RunReq(const Invocation& invocation);
int RunCertPut(const Invocation& invocation);
int RunCertGet(const Invocation& invocation);
int RunDelete(const Invocation& invocation);
int RunImport(const Invocation& invocation);
int RunWrap(const Invocation& invocation);
int RunCerts(const Invocation& invocation);
int RunReaders(const Invocation& invocation);
int RunRegister(const Invocation& invocation);
int RunUnregister(const Invocation& invocation);
