#include "default_configuration.h"

#include <algorithm>
#include <stdexcept>

#include "platform/posix/reg_file.h"
#include "platform/text.h"

namespace {

using Text = std::u16string;
using View = std::u16string_view;

constexpr View kHive = u"HKEY_LOCAL_MACHINE";

char16_t Fold(char16_t c) {
    return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 32) : c;
}

bool SameIgnoringCase(View a, View b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (Fold(a[i]) != Fold(b[i])) return false;
    return true;
}

View Trim(View text) {
    while (!text.empty() && (text.front() == u' ' || text.front() == u'\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == u' ' || text.back() == u'\t')) text.remove_suffix(1);
    return text;
}

// The file as UTF-16, as the registry file reader decodes it: UTF-16LE
// after an FF FE mark, UTF-8 otherwise.
Text Decode(std::string_view bytes) {
    if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
        static_cast<unsigned char>(bytes[1]) == 0xFE) {
        Text text;
        for (size_t i = 2; i + 1 < bytes.size(); i += 2)
            text.push_back(static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                                 (static_cast<unsigned char>(bytes[i + 1]) << 8)));
        return text;
    }
    if (bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
    platform::WideString wide = platform::FromUtf8(bytes);
    return Text(wide.begin(), wide.end());
}

// The name of a `"name"=...` or `@=...` line; false when the line is not one.
bool ValueName(View line, Text* name) {
    View rest;
    if (line.front() == u'@') {
        name->clear();
        rest = line.substr(1);
    } else {
        name->clear();
        size_t i = 1;
        for (; i < line.size() && line[i] != u'"'; ++i) {
            if (line[i] == u'\\' && i + 1 < line.size()) ++i;
            name->push_back(line[i]);
        }
        if (i == line.size()) return false;
        rest = line.substr(i + 1);
    }
    rest = Trim(rest);
    return !rest.empty() && rest.front() == u'=';
}

struct Place {
    Text key, name;
};

std::vector<Place> PlacesInFile(View text) {
    std::vector<Place> places;
    Text key;
    bool inKey = false;
    size_t number = 0;
    for (size_t start = 0; start <= text.size();) {
        size_t end = text.find(u'\n', start);
        if (end == View::npos) end = text.size();
        View line = text.substr(start, end - start);
        start = end + 1;
        ++number;
        if (!line.empty() && line.back() == u'\r') line.remove_suffix(1);
        line = Trim(line);
        if (line.empty() || line.front() == u';') continue;
        if (line.front() == u'[') {
            inKey = false;
            if (line.back() != u']' || line.substr(0, 2) == u"[-") continue;
            View path = line.substr(1, line.size() - 2);
            if (!SameIgnoringCase(path.substr(0, kHive.size()), kHive) ||
                (path.size() > kHive.size() && path[kHive.size()] != u'\\'))
                throw std::runtime_error("the configuration names a key outside " + Utf8(kHive) +
                                         ": " + Utf8(path));
            key = Text(path.substr(std::min(path.size(), kHive.size() + 1)));
            inKey = true;
        } else if ((line.front() == u'"' || line.front() == u'@') && inKey) {
            Text name;
            if (!ValueName(line, &name))
                throw std::runtime_error("line " + std::to_string(number) +
                                         " of the configuration is not a value");
            bool seen = false;
            for (const Place& place : places)
                seen |= SameIgnoringCase(place.key, key) && SameIgnoringCase(place.name, name);
            if (!seen) places.push_back({key, std::move(name)});
        }
    }
    return places;
}

}  // namespace

std::vector<ConfigurationValue> ConfigurationValues(std::string_view regFile) {
    std::vector<ConfigurationValue> values;
    for (Place& place : PlacesInFile(Decode(regFile))) {
        platform::regfile::Lookup lookup =
            platform::regfile::FindInBytes(regFile, place.key, place.name);
        if (lookup.outcome == platform::regfile::Outcome::kUnreadable)
            throw std::runtime_error("the configuration's value \"" + Utf8(place.name) +
                                     "\" under " + Utf8(place.key) + " cannot be read");
        if (lookup.outcome != platform::regfile::Outcome::kFound) continue;
        values.push_back({std::move(place.key), std::move(place.name), lookup.value.type,
                          std::move(lookup.value.data)});
    }
    return values;
}

std::vector<std::u16string> ConfigurationKeys(const std::vector<ConfigurationValue>& values) {
    std::vector<std::u16string> keys;
    for (const ConfigurationValue& value : values) {
        bool seen = false;
        for (const std::u16string& key : keys) seen |= SameIgnoringCase(key, value.key);
        if (!seen) keys.push_back(value.key);
    }
    return keys;
}

std::vector<std::u16string> MultiStrings(const std::vector<uint8_t>& data) {
    std::vector<std::u16string> strings;
    std::u16string current;
    for (size_t i = 0; i + 1 < data.size(); i += 2) {
        auto unit = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
        if (unit != 0) {
            current.push_back(unit);
        } else if (!current.empty()) {
            strings.push_back(std::move(current));
            current.clear();
        } else {
            break;
        }
    }
    if (!current.empty()) strings.push_back(std::move(current));
    return strings;
}

std::string Utf8(std::u16string_view text) {
    return platform::ToUtf8(platform::WideString(text.begin(), text.end()));
}
