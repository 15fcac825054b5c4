#include "platform/posix/reg_file.h"

#include <cstdio>
#include <memory>
#include <optional>

#include "platform/text.h"

namespace platform::regfile {
namespace {

using Text = std::u16string;
using View = std::u16string_view;

constexpr View kHeader = u"Windows Registry Editor Version 5.00";
constexpr View kHive = u"HKEY_LOCAL_MACHINE";
// Longer lines are not real configuration; they keep their start (so that
// their key or value name is still known) and are treated as malformed.
constexpr size_t kMaxPhysicalLine = 1 << 16;
constexpr size_t kMaxLogicalLine = 1 << 22;

class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Returns the next byte, or -1 at the end.
    int Next() {
        if (pos_ == end_ && !Refill()) return -1;
        return static_cast<unsigned char>(*pos_++);
    }

protected:
    virtual bool Refill() = 0;
    const char* pos_ = nullptr;
    const char* end_ = nullptr;
};

class MemorySource : public ByteSource {
public:
    explicit MemorySource(std::string_view bytes) {
        pos_ = bytes.data();
        end_ = bytes.data() + bytes.size();
    }

protected:
    bool Refill() override { return false; }
};

class FileSource : public ByteSource {
public:
    explicit FileSource(std::FILE* file) : file_(file) {}

protected:
    bool Refill() override {
        size_t got = std::fread(buffer_, 1, sizeof buffer_, file_);
        pos_ = buffer_;
        end_ = buffer_ + got;
        return got > 0;
    }

private:
    std::FILE* file_;
    char buffer_[1 << 16];
};

struct Line {
    Text text;
    bool damaged = false;  // cut short, badly encoded or holding a NUL
};

// Splits the source into UTF-16 lines. A byte-order mark FF FE selects
// UTF-16LE (what regedit writes); anything else is read as UTF-8.
class LineReader {
public:
    explicit LineReader(ByteSource& source) : source_(source) {
        int b0 = source_.Next();
        int b1 = b0 < 0 ? -1 : source_.Next();
        if (b0 == 0xFF && b1 == 0xFE) {
            utf16_ = true;
            return;
        }
        int b2 = b1 < 0 ? -1 : source_.Next();
        if (b0 == 0xEF && b1 == 0xBB && b2 == 0xBF) return;
        for (int b : {b0, b1, b2})
            if (b >= 0) pending_.push_back(static_cast<char>(b));
    }

    bool Next(Line& line) { return utf16_ ? NextUtf16(line) : NextUtf8(line); }

private:
    int NextByte() {
        if (pendingPos_ < pending_.size())
            return static_cast<unsigned char>(pending_[pendingPos_++]);
        return source_.Next();
    }

    bool NextUtf8(Line& line) {
        std::string bytes;
        bool cut = false;
        int b = NextByte();
        if (b < 0) return false;
        for (; b >= 0 && b != '\n'; b = NextByte()) {
            if (bytes.size() < kMaxPhysicalLine)
                bytes.push_back(static_cast<char>(b));
            else
                cut = true;
        }
        if (!bytes.empty() && bytes.back() == '\r') bytes.pop_back();
        bool valid = true;
        WideString wide = FromUtf8(bytes, &valid);
        line.text.assign(wide.begin(), wide.end());
        line.damaged = cut || !valid || bytes.find('\0') != std::string::npos;
        return true;
    }

    bool NextUtf16(Line& line) {
        line.text.clear();
        line.damaged = false;
        int lo = NextByte();
        if (lo < 0) return false;
        for (;;) {
            int hi = NextByte();
            if (hi < 0) {
                line.damaged = true;  // half a code unit: the file was cut
                break;
            }
            char16_t unit = static_cast<char16_t>(lo | (hi << 8));
            if (unit == u'\n') break;
            if (unit == 0) line.damaged = true;
            if (line.text.size() < kMaxPhysicalLine)
                line.text.push_back(unit);
            else
                line.damaged = true;
            lo = NextByte();
            if (lo < 0) break;
        }
        if (!line.text.empty() && line.text.back() == u'\r') line.text.pop_back();
        return true;
    }

    ByteSource& source_;
    bool utf16_ = false;
    std::string pending_;
    size_t pendingPos_ = 0;
};

bool IsBlank(char16_t c) {
    return c == u' ' || c == u'\t';
}

View Trim(View text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

char16_t Fold(char16_t c) {
    return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 32) : c;
}

bool SameIgnoringCase(View a, View b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (Fold(a[i]) != Fold(b[i])) return false;
    return true;
}

// True when path is the same key as target or one of its parents.
bool IsSelfOrParent(View path, View target) {
    if (path.size() > target.size()) return false;
    if (!SameIgnoringCase(path, target.substr(0, path.size()))) return false;
    return path.size() == target.size() || target[path.size()] == u'\\';
}

int HexDigit(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

// Parses a run of 1 to maxDigits hex digits that must fill the whole text.
std::optional<uint32_t> ParseHex(View text, size_t minDigits, size_t maxDigits) {
    if (text.size() < minDigits || text.size() > maxDigits) return std::nullopt;
    uint32_t value = 0;
    for (char16_t c : text) {
        int digit = HexDigit(c);
        if (digit < 0) return std::nullopt;
        value = (value << 4) | static_cast<uint32_t>(digit);
    }
    return value;
}

// Reads a quoted string with the \\ and \" escapes from the start of text.
// On success *rest is what follows the closing quote.
std::optional<Text> ParseQuoted(View text, View* rest) {
    if (text.empty() || text.front() != u'"') return std::nullopt;
    Text out;
    for (size_t i = 1; i < text.size(); ++i) {
        char16_t c = text[i];
        if (c == u'"') {
            *rest = text.substr(i + 1);
            return out;
        }
        if (c == u'\\') {
            if (++i == text.size() || (text[i] != u'\\' && text[i] != u'"')) return std::nullopt;
            c = text[i];
        }
        out.push_back(c);
    }
    return std::nullopt;
}

void AppendUtf16le(std::vector<uint8_t>& out, View text) {
    for (char16_t c : text) {
        out.push_back(static_cast<uint8_t>(c & 0xFF));
        out.push_back(static_cast<uint8_t>(c >> 8));
    }
}

bool EndsWithZeros(const std::vector<uint8_t>& data, size_t count) {
    if (data.size() < count) return false;
    for (size_t i = data.size() - count; i < data.size(); ++i)
        if (data[i] != 0) return false;
    return true;
}

// String types must be whole UTF-16 text with its terminator, so that a file
// cut inside a hex list never passes for a shorter value.
bool HasPlausibleLength(uint32_t type, const std::vector<uint8_t>& data) {
    switch (type) {
        case 1:
        case 2:
            return data.size() % 2 == 0 && EndsWithZeros(data, 2);
        case 7:
            return data.size() % 2 == 0 &&
                   (data.size() == 2 ? EndsWithZeros(data, 2) : EndsWithZeros(data, 4));
        case 4:
            return data.size() == 4;
        case 11:
            return data.size() == 8;
        default:
            return true;
    }
}

std::optional<Value> ParseHexData(View text) {
    // text follows "hex": either ":" or "(t):".
    Value value{3, {}};
    if (!text.empty() && text.front() == u'(') {
        size_t close = text.find(u')');
        if (close == View::npos) return std::nullopt;
        auto type = ParseHex(text.substr(1, close - 1), 1, 8);
        if (!type) return std::nullopt;
        value.type = *type;
        text.remove_prefix(close + 1);
    }
    if (text.empty() || text.front() != u':') return std::nullopt;
    text.remove_prefix(1);
    if (!Trim(text).empty()) {
        for (;;) {
            size_t comma = text.find(u',');
            auto byte = ParseHex(Trim(text.substr(0, comma)), 2, 2);
            if (!byte) return std::nullopt;
            value.data.push_back(static_cast<uint8_t>(*byte));
            if (comma == View::npos) break;
            text.remove_prefix(comma + 1);
        }
    }
    if (!HasPlausibleLength(value.type, value.data)) return std::nullopt;
    return value;
}

enum class DataKind { kValue, kDelete, kMalformed };

struct Data {
    DataKind kind = DataKind::kMalformed;
    Value value;
};

Data ParseData(View text) {
    text = Trim(text);
    Data data;
    if (text == u"-") {
        data.kind = DataKind::kDelete;
    } else if (!text.empty() && text.front() == u'"') {
        View rest;
        auto str = ParseQuoted(text, &rest);
        if (!str || !Trim(rest).empty()) return data;
        data.value.type = 1;
        AppendUtf16le(data.value.data, *str);
        AppendUtf16le(data.value.data, View(u"\0", 1));
        data.kind = DataKind::kValue;
    } else if (text.starts_with(u"dword:")) {
        // Exactly eight digits, as regedit writes them: a file cut inside the
        // number must not read as a smaller number.
        auto number = ParseHex(text.substr(6), 8, 8);
        if (!number) return data;
        data.value.type = 4;
        for (int shift = 0; shift < 32; shift += 8)
            data.value.data.push_back(static_cast<uint8_t>(*number >> shift));
        data.kind = DataKind::kValue;
    } else if (text.starts_with(u"hex")) {
        auto value = ParseHexData(text.substr(3));
        if (!value) return data;
        data.value = std::move(*value);
        data.kind = DataKind::kValue;
    }
    return data;
}

// Splits `"name"=data` or `@=data`; returns false when the name is malformed.
bool SplitValueLine(View line, Text* name, View* data) {
    View rest;
    if (line.front() == u'@') {
        name->clear();
        rest = line.substr(1);
    } else {
        auto quoted = ParseQuoted(line, &rest);
        if (!quoted) return false;
        *name = std::move(*quoted);
    }
    rest = Trim(rest);
    if (rest.empty() || rest.front() != u'=') return false;
    *data = rest.substr(1);
    return true;
}

class Scanner {
public:
    Scanner(std::u16string_view subKey, std::u16string_view valueName) : valueName_(valueName) {
        while (!subKey.empty() && subKey.front() == u'\\') subKey.remove_prefix(1);
        while (!subKey.empty() && subKey.back() == u'\\') subKey.remove_suffix(1);
        target_ = Text(kHive);
        if (!subKey.empty()) target_.append(u"\\").append(subKey);
    }

    Lookup Run(LineReader& reader) {
        Line line;
        if (!ReadHeader(reader, line)) return {};
        while (reader.Next(line)) {
            View text = Trim(line.text);
            if (text.empty() || text.front() == u';') continue;
            if (text.front() == u'[')
                OnKeyLine(text, line.damaged);
            else if (text.front() == u'"' || text.front() == u'@')
                OnValueLine(reader, line);
        }
        Lookup result;
        if (!keyExists_) return result;
        result.outcome = valueState_;
        result.value = std::move(value_);
        return result;
    }

private:
    static bool ReadHeader(LineReader& reader, Line& line) {
        while (reader.Next(line)) {
            View text = Trim(line.text);
            if (text.empty()) continue;
            return !line.damaged && text == kHeader;
        }
        return false;
    }

    void OnKeyLine(View text, bool damaged) {
        inTarget_ = false;
        if (damaged || text.back() != u']') return;
        View path = text.substr(1, text.size() - 2);
        bool deletion = !path.empty() && path.front() == u'-';
        if (deletion) {
            path.remove_prefix(1);
            if (IsSelfOrParent(path, target_)) {
                keyExists_ = false;
                ForgetValue();
            }
            return;
        }
        if (IsSelfOrParent(target_, path)) keyExists_ = true;
        inTarget_ = SameIgnoringCase(path, target_);
    }

    void OnValueLine(LineReader& reader, Line& first) {
        Text name;
        View dataText;
        bool named = SplitValueLine(Trim(first.text), &name, &dataText);
        bool damaged = first.damaged;
        Text joined;
        if (named && Trim(dataText).starts_with(u"hex")) {
            joined = Text(Trim(dataText));
            damaged |= JoinContinuations(reader, joined);
            dataText = joined;
        }
        if (!inTarget_ || !named || !SameIgnoringCase(name, valueName_)) return;
        Data data = damaged ? Data{} : ParseData(dataText);
        switch (data.kind) {
            case DataKind::kValue:
                valueState_ = Outcome::kFound;
                value_ = std::move(data.value);
                break;
            case DataKind::kDelete:
                ForgetValue();
                break;
            case DataKind::kMalformed:
                valueState_ = Outcome::kUnreadable;
                value_ = {};
                break;
        }
    }

    // Hex lists continue on the next line after a trailing backslash.
    // Returns true when the list was cut short.
    static bool JoinContinuations(LineReader& reader, Text& joined) {
        Line next;
        while (!joined.empty() && joined.back() == u'\\') {
            joined.pop_back();
            if (!reader.Next(next) || next.damaged) return true;
            joined.append(Trim(next.text));
            if (joined.size() > kMaxLogicalLine) return true;
            while (!joined.empty() && IsBlank(joined.back())) joined.pop_back();
        }
        return false;
    }

    void ForgetValue() {
        valueState_ = Outcome::kValueMissing;
        value_ = {};
    }

    Text target_;
    View valueName_;
    bool inTarget_ = false;
    bool keyExists_ = false;
    Outcome valueState_ = Outcome::kValueMissing;
    Value value_;
};

Lookup Scan(ByteSource& source, std::u16string_view subKey, std::u16string_view valueName) {
    LineReader reader(source);
    return Scanner(subKey, valueName).Run(reader);
}

}  // namespace

Lookup Find(const std::string& filePath, std::u16string_view subKey,
            std::u16string_view valueName) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(filePath.c_str(), "rb"),
                                                         &std::fclose);
    if (!file) return {};
    auto source = std::make_unique<FileSource>(file.get());
    return Scan(*source, subKey, valueName);
}

Lookup FindInBytes(std::string_view fileBytes, std::u16string_view subKey,
                   std::u16string_view valueName) {
    MemorySource source(fileBytes);
    return Scan(source, subKey, valueName);
}

}  // namespace platform::regfile
