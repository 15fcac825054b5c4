// certs: the token's certificates as the provider's two stores hand them
// out: self-signed ones in the root store, the others in the user store.
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "certificate.h"
#include "certificate_store.h"
#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "data_io.h"
#include "exit_codes.h"
#include "json_text.h"
#include "provider_client.h"
#include "provider_session.h"

namespace {

const CommandSyntax kSyntax{
    "certs",
    "usage: quelmksp certs [--root|--user] [--format text|pem|json] [-o FILE]\n"
    "\n"
    "Lists the certificates on the token through the provider's two stores:\n"
    "the root store (self-signed certificates) and the user store (the\n"
    "others), each certificate with its subject, issuer, serial number and\n"
    "validity (UTC).\n"
    "\n"
    "  --root         only the root store\n"
    "  --user         only the user store\n"
    "  --format FORM  text (default), pem (the certificates themselves) or\n"
    "                 json (see the README for the fields)\n"
    "  -o FILE        write to FILE instead of stdout\n",
    {"--root", "--user"},
    {"--format", "-o"},
    0,
    0};

struct StoreContents {
    const char* key;
    const char* title;
    std::vector<SecretBytes> certificates;
};

std::string Described(const SecretBytes& der) {
    std::optional<CertificateFacts> facts = DescribeCertificate(der);
    if (!facts) return "  (not an X.509 certificate: " + std::to_string(der.size()) + " bytes)\n";
    return "  subject     " + facts->subject + "\n  issuer      " + facts->issuer +
           "\n  serial      " + facts->serial + "\n  not before  " + facts->notBefore +
           "\n  not after   " + facts->notAfter + "\n";
}

std::string TextListing(const std::vector<StoreContents>& stores) {
    std::string text;
    for (const StoreContents& store : stores) {
        if (!text.empty()) text += "\n";
        const size_t count = store.certificates.size();
        text += std::string(store.title) + ": " + std::to_string(count) +
                (count == 1 ? " certificate\n" : " certificates\n");
        for (const SecretBytes& der : store.certificates) text += "\n" + Described(der);
    }
    return text;
}

std::string JsonListing(const std::vector<StoreContents>& stores) {
    std::string text = "{";
    for (size_t s = 0; s < stores.size(); ++s) {
        text += std::string(s ? ",\n" : "\n") + "  " + JsonString(stores[s].key) + ": [";
        const std::vector<SecretBytes>& certificates = stores[s].certificates;
        for (size_t c = 0; c < certificates.size(); ++c) {
            std::optional<CertificateFacts> facts = DescribeCertificate(certificates[c]);
            text += c ? ",\n    " : "\n    ";
            if (!facts) {
                text += "null";
                continue;
            }
            text += "{\"subject\": " + JsonString(facts->subject) +
                    ", \"issuer\": " + JsonString(facts->issuer) +
                    ", \"serial\": " + JsonString(facts->serial) +
                    ", \"not_before\": " + JsonString(facts->notBefore) +
                    ", \"not_after\": " + JsonString(facts->notAfter) + "}";
        }
        text += certificates.empty() ? "]" : "\n  ]";
    }
    return text + "\n}\n";
}

}  // namespace

int RunCerts(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    const std::string format = parsed.Value("--format", "text");
    if (format != "text" && format != "pem" && format != "json")
        throw UsageError("unknown format '" + format + "': use text, pem or json");
    if (parsed.Has("--root") && parsed.Has("--user"))
        throw UsageError("--root and --user exclude each other; give neither for both stores");

    ProviderClient client(invocation.library, invocation.interactive);
    ProviderSession session(client);
    std::vector<StoreContents> stores;
    if (!parsed.Has("--user"))
        stores.push_back({"root", "root store (self-signed)",
                          ReadCertificateStore(session, CertificateStoreKind::kRoot)});
    if (!parsed.Has("--root"))
        stores.push_back({"user", "user store (issued by others)",
                          ReadCertificateStore(session, CertificateStoreKind::kUser)});
    SecretBytes output;
    if (format == "pem") {
        for (const StoreContents& store : stores)
            for (const SecretBytes& der : store.certificates) {
                SecretBytes pem = CertificatePem(der);
                output.insert(output.end(), pem.begin(), pem.end());
            }
    } else {
        const std::string text = format == "json" ? JsonListing(stores) : TextListing(stores);
        output.assign(text.begin(), text.end());
    }
    WriteOutput(parsed.Value("-o", "-"), output.data(), output.size());
    return exit_code::kOk;
}
