// A process-wide number for every reader name seen, so that certificates
// handed out for one reader can be found again when its card is removed.
// Numbers are never reused: the first reader gets 0, the next new one 1.
#pragma once

#include <cstdint>
#include <map>

#include "platform/sync.h"
#include "platform/wide_string.h"

class ReaderIdMap {
public:
    uint32_t GetUniqueSlotId(platform::WideView readerName);

private:
    std::map<platform::WideString, uint32_t, std::less<>> ids_;
    uint32_t nextId_ = 0;
    // Providers and the card monitor thread both use the map.
    platform::CriticalSection lock_;
};

extern ReaderIdMap* g_pReaderIds;
