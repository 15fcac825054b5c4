#include "distinguished_name.h"

#include "client_error.h"

namespace {

// Text with blanks cut from both ends, except blanks written with a backslash.
class Field {
public:
    void Add(char c, bool escaped) {
        if (!escaped && c == ' ' && text_.empty()) return;
        text_.push_back(c);
        if (escaped || c != ' ') kept_ = text_.size();
    }
    std::string Take() {
        std::string text = text_.substr(0, kept_);
        text_.clear();
        kept_ = 0;
        return text;
    }
    bool Empty() const { return kept_ == 0; }

private:
    std::string text_;
    size_t kept_ = 0;
};

}  // namespace

std::vector<NameAttribute> ParseDistinguishedName(const std::string& text) {
    if (text.empty()) throw UsageError("the subject is empty");
    const bool slashForm = text[0] == '/';
    const char separator = slashForm ? '/' : ',';
    std::vector<NameAttribute> attributes;
    Field type;
    Field value;
    bool inValue = false;
    auto endAttribute = [&](size_t at) {
        if (!inValue)
            throw UsageError("the subject has no TYPE=value at character " +
                             std::to_string(at + 1) + ": '" + text + "'");
        if (type.Empty()) throw UsageError("an attribute of the subject has no type");
        NameAttribute attribute{type.Take(), value.Take()};
        if (attribute.value.empty())
            throw UsageError("the subject's " + attribute.type + " has no value");
        attributes.push_back(std::move(attribute));
        inValue = false;
    };
    for (size_t i = slashForm ? 1 : 0; i < text.size(); ++i) {
        char c = text[i];
        bool escaped = c == '\\';
        if (escaped) {
            if (++i == text.size()) throw UsageError("the subject ends with a lone backslash");
            c = text[i];
        }
        if (!escaped && c == separator) {
            endAttribute(i);
        } else if (!escaped && c == '=' && !inValue) {
            inValue = true;
        } else {
            (inValue ? value : type).Add(c, escaped);
        }
    }
    endAttribute(text.size());
    return attributes;
}
