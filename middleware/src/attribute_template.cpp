#include "attribute_template.h"

#include <algorithm>
#include <cstring>

namespace quelm {

AttributeTemplate::AttributeTemplate(const CK_ATTRIBUTE* attributes, CK_ULONG count) {
    if (attributes) attributes_.assign(attributes, attributes + count);
}

const CK_ATTRIBUTE* AttributeTemplate::find(CK_ATTRIBUTE_TYPE type) const {
    const auto found = std::find_if(attributes_.begin(), attributes_.end(),
                                    [type](const CK_ATTRIBUTE& a) { return a.type == type; });
    return found == attributes_.end() ? nullptr : &*found;
}

std::optional<CK_ULONG> AttributeTemplate::ulong_value(CK_ATTRIBUTE_TYPE type) const {
    const CK_ATTRIBUTE* attribute = find(type);
    if (!attribute || !attribute->pValue || attribute->ulValueLen != sizeof(CK_ULONG)) {
        return std::nullopt;
    }
    CK_ULONG value;
    std::memcpy(&value, attribute->pValue, sizeof value);
    return value;
}

std::optional<CK_BBOOL> AttributeTemplate::bool_value(CK_ATTRIBUTE_TYPE type) const {
    const CK_ATTRIBUTE* attribute = find(type);
    if (!attribute || !attribute->pValue || attribute->ulValueLen != sizeof(CK_BBOOL)) {
        return std::nullopt;
    }
    return *static_cast<const CK_BBOOL*>(attribute->pValue);
}

void AttributeTemplate::remove(CK_ATTRIBUTE_TYPE type) {
    std::erase_if(attributes_, [type](const CK_ATTRIBUTE& a) { return a.type == type; });
}

void AttributeTemplate::remove_if_null(CK_ATTRIBUTE_TYPE type) {
    std::erase_if(attributes_,
                  [type](const CK_ATTRIBUTE& a) { return a.type == type && !a.pValue; });
}

void AttributeTemplate::set(CK_ATTRIBUTE_TYPE type, SecretBuffer value) {
    remove(type);
    owned_.push_back(std::move(value));
    SecretBuffer& stored = owned_.back();
    attributes_.push_back({type, stored.data(), static_cast<CK_ULONG>(stored.size())});
}

void AttributeTemplate::set_ulong(CK_ATTRIBUTE_TYPE type, CK_ULONG value) {
    set(type, SecretBuffer(&value, sizeof value));
}

void AttributeTemplate::set_bool(CK_ATTRIBUTE_TYPE type, CK_BBOOL value) {
    set(type, SecretBuffer(&value, sizeof value));
}

}  // namespace quelm
