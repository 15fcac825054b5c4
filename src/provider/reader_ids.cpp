#include "provider/reader_ids.h"

#include <mutex>

uint32_t ReaderIdMap::GetUniqueSlotId(platform::WideView readerName) {
    std::lock_guard<platform::CriticalSection> guard(lock_);
    auto found = ids_.find(readerName);
    if (found != ids_.end()) return found->second;
    uint32_t id = nextId_++;
    ids_.emplace(platform::WideString(readerName), id);
    return id;
}
