// The --subject of req. Two forms are taken: "/CN=x/O=y" (it starts with a
// slash, as in openssl req -subj) and "CN=x,O=y" (it does not; blanks after
// a comma and around the equals sign are dropped). A backslash takes the
// next character as it is ("CN=a\,b"). In both forms the attributes go into
// the name in the order written: the first one is the first in the
// encoding, as OpenSSL prints names, not the reversed order of RFC 4514.
#pragma once

#include <string>
#include <vector>

struct NameAttribute {
    std::string type;
    std::string value;
};

// Throws UsageError for text in neither form. The types are not checked.
std::vector<NameAttribute> ParseDistinguishedName(const std::string& text);
