// The card monitor's state: whether its thread has been started.
#pragma once

#include <atomic>
#include <cstdint>

struct CardMonitor {
    std::atomic<uint32_t> fStarted{0};
};

extern CardMonitor* g_pCardMonitor;
