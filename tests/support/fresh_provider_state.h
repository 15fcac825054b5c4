// Gives a test the process-wide objects of a freshly loaded provider, made
// under the test's own registry file and token module, and puts the old
// ones back afterwards. Logging goes to a file in the test's folder.
#pragma once

#include <string>
#include <vector>

#include "diag/debug_class.h"
#include "provider/card_monitor.h"
#include "provider/provider_cache.h"
#include "provider/reader_ids.h"
#include "registry_file.h"
#include "token/cryptoki_library.h"

class FreshProviderState {
public:
    // registryBody: settings beyond logging; module: the token module file.
    FreshProviderState(const TempDir& dir, const std::string& registryBody,
                       const std::string& module)
        : registry_(dir, RegistryFile::LoggingTo(dir / "ksp.log") + registryBody),
          logPath_(dir / "ksp.log") {
        test_system::SetVariable("QUELMKSP_PKCS11_MODULE", module);
        // A binding made when the process started may have initialised the
        // token module already, under that moment's environment. Finalising
        // it lets the new binding's C_Initialize read this test's tokens.
        if (saved_.cryptoki) saved_.cryptoki->functions()->C_Finalize(nullptr);
        g_pTokenLog = new DebugClass(false);
        g_pOpLog = new DebugClass(false);
        g_bindingError.clear();
        g_pCryptoki = CreateCryptokiLibrary();
        g_pProviderCache = new ProviderCache();
        g_pCardMonitor = new CardMonitor();
        g_pReaderIds = new ReaderIdMap();
    }
    ~FreshProviderState() {
        // The monitor's thread uses the reader-id map: it ends first.
        StopCardMonitor(*g_pCardMonitor);
        // One whose thread would not end is left to it.
        if (!g_pCardMonitor->hThread) delete g_pCardMonitor;
        delete g_pReaderIds;
        delete g_pProviderCache;
        delete g_pCryptoki;
        delete g_pOpLog;
        delete g_pTokenLog;
        g_pReaderIds = saved_.readerIds;
        g_pCardMonitor = saved_.monitor;
        g_pProviderCache = saved_.cache;
        g_pCryptoki = saved_.cryptoki;
        g_pOpLog = saved_.opLog;
        g_pTokenLog = saved_.tokenLog;
        test_system::UnsetVariable("QUELMKSP_PKCS11_MODULE");
    }

    std::string Log() const { return ReadFile(logPath_); }
    void ClearLog() const { WriteFile(logPath_, ""); }

    // The log without the frames' rule lines and blank lines, one entry per
    // line: what tests compare line by line.
    std::vector<std::string> LogLines() const {
        std::vector<std::string> lines;
        std::string log = Log();
        size_t start = 0;
        for (size_t end; (end = log.find('\n', start)) != std::string::npos; start = end + 1) {
            std::string line = log.substr(start, end - start);
            // The Windows build writes the log in text mode, with CR LF.
            if (!line.empty() && line.back() == '\r') line.pop_back();
            if (!line.empty() && line != std::string(66, '=')) lines.push_back(line);
        }
        return lines;
    }

private:
    struct Saved {
        DebugClass* tokenLog = g_pTokenLog;
        DebugClass* opLog = g_pOpLog;
        CryptokiLibrary* cryptoki = g_pCryptoki;
        ProviderCache* cache = g_pProviderCache;
        ReaderIdMap* readerIds = g_pReaderIds;
        CardMonitor* monitor = g_pCardMonitor;
    } saved_;
    RegistryFile registry_;
    std::string logPath_;
};
