#pragma once

#include <cstddef>
#include <vector>

#include <p11-kit/pkcs11.h>

namespace quelm {

// The matches of one search, drained from the backend when the search starts. Holding them here
// is what lets a caller ask how many are left before it supplies an array.
class ObjectSearch {
public:
    bool active() const { return active_; }
    void start(std::vector<CK_OBJECT_HANDLE> matches);
    CK_ULONG remaining() const { return static_cast<CK_ULONG>(matches_.size() - next_); }
    CK_ULONG take(CK_OBJECT_HANDLE_PTR out, CK_ULONG max);
    void finish();

private:
    bool active_ = false;
    std::vector<CK_OBJECT_HANDLE> matches_;
    std::size_t next_ = 0;
};

}  // namespace quelm
