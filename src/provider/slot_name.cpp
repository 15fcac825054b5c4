#include "provider/slot_name.h"

#include <string_view>

#include "platform/text.h"

platform::WideString SlotName(const CK_SLOT_INFO& info) {
    std::string_view description(reinterpret_cast<const char*>(info.slotDescription),
                                 sizeof info.slotDescription);
    platform::WideString name = platform::FromAnsi(description);
    name.resize(kReaderNameChars, 0);
    for (size_t i = kReaderNameChars - 1; i >= 1; --i) {
        if (name[i] != WIDE(' ') && name[i] != 0) break;
        name[i] = 0;
    }
    return platform::WideString(name.c_str());
}
