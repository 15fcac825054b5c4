#include "object_search.h"

#include <algorithm>

namespace quelm {

void ObjectSearch::start(std::vector<CK_OBJECT_HANDLE> matches) {
    matches_ = std::move(matches);
    next_ = 0;
    active_ = true;
}

CK_ULONG ObjectSearch::take(CK_OBJECT_HANDLE_PTR out, CK_ULONG max) {
    const CK_ULONG count = std::min(max, remaining());
    std::copy_n(matches_.begin() + static_cast<std::ptrdiff_t>(next_), count, out);
    next_ += count;
    return count;
}

void ObjectSearch::finish() {
    active_ = false;
    matches_.clear();
    next_ = 0;
}

}  // namespace quelm
