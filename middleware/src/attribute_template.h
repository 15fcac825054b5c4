#pragma once

#include <optional>
#include <vector>

#include <p11-kit/pkcs11.h>

#include "secret_buffer.h"

namespace quelm {

// An editable copy of a caller's template. Unchanged attributes still point at the caller's
// values; values added here are owned, and wiped with the template because they may be key
// components.
class AttributeTemplate {
public:
    AttributeTemplate(const CK_ATTRIBUTE* attributes, CK_ULONG count);

    const CK_ATTRIBUTE* find(CK_ATTRIBUTE_TYPE type) const;
    std::optional<CK_ULONG> ulong_value(CK_ATTRIBUTE_TYPE type) const;
    std::optional<CK_BBOOL> bool_value(CK_ATTRIBUTE_TYPE type) const;

    void remove(CK_ATTRIBUTE_TYPE type);
    void remove_if_null(CK_ATTRIBUTE_TYPE type);
    void set(CK_ATTRIBUTE_TYPE type, SecretBuffer value);
    void set_ulong(CK_ATTRIBUTE_TYPE type, CK_ULONG value);
    void set_bool(CK_ATTRIBUTE_TYPE type, CK_BBOOL value);

    const std::vector<CK_ATTRIBUTE>& attributes() const { return attributes_; }
    CK_ATTRIBUTE_PTR data() { return attributes_.empty() ? nullptr : attributes_.data(); }
    CK_ULONG size() const { return static_cast<CK_ULONG>(attributes_.size()); }

private:
    std::vector<CK_ATTRIBUTE> attributes_;
    std::vector<SecretBuffer> owned_;
};

}  // namespace quelm
