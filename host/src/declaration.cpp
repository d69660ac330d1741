#include "tqvhost/declaration.h"

#include <cctype>
#include <cstdlib>

namespace tqvhost {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

namespace {

struct NamedType {
    const char* name;
    TypeKind kind;
};
const NamedType kTypes[] = {
    {"Integer", TypeKind::Integer},
    {"Boolean", TypeKind::Boolean},
    {"Single", TypeKind::Single},
    {"Double", TypeKind::Double},
    {"Color", TypeKind::Color},
    {"String", TypeKind::String},
    {"MemoryBlock", TypeKind::MemoryBlock},
    {"Picture", TypeKind::Picture},
    {"FolderItem", TypeKind::FolderItem},
    {"Graphics", TypeKind::Graphics},
};

bool isIdentChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// A small cursor over a declaration: identifiers, punctuation, whitespace skipped.
class Cursor {
  public:
    explicit Cursor(std::string_view s) : s_(s) {}
    void skipSpace() {
        while (i_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[i_]))) ++i_;
    }
    bool atEnd() {
        skipSpace();
        return i_ >= s_.size();
    }
    bool take(char c) {
        skipSpace();
        if (i_ < s_.size() && s_[i_] == c) return ++i_, true;
        return false;
    }
    std::string ident() {
        skipSpace();
        size_t start = i_;
        while (i_ < s_.size() && isIdentChar(s_[i_])) ++i_;
        return std::string(s_.substr(start, i_ - start));
    }
    bool keyword(std::string_view word) {
        skipSpace();
        size_t save = i_;
        if (equalsIgnoringCase(ident(), word)) return true;
        i_ = save;
        return false;
    }
    // Text up to (not including) one of `stops` at nesting level 0, trimmed.
    std::string until(std::string_view stops) {
        skipSpace();
        size_t start = i_;
        while (i_ < s_.size() && stops.find(s_[i_]) == std::string_view::npos) ++i_;
        size_t end = i_;
        while (end > start && std::isspace(static_cast<unsigned char>(s_[end - 1]))) --end;
        return std::string(s_.substr(start, end - start));
    }

  private:
    std::string_view s_;
    size_t i_ = 0;
};

bool isNumber(const std::string& text) {
    char* end = nullptr;
    std::strtod(text.c_str(), &end);
    return !text.empty() && !std::isspace(static_cast<unsigned char>(text[0])) && *end == '\0';
}

// A default the runtime could not read for the parameter's type is refused with the declaration,
// not when a call first needs it.
bool validDefault(const Type& type, const std::string& text) {
    switch (type.kind) {
        case TypeKind::Integer:
        case TypeKind::Color:
            return integerLiteral(text, type.kind).has_value();
        case TypeKind::Single:
        case TypeKind::Double:
            return isNumber(text);
        case TypeKind::Boolean:
            return equalsIgnoringCase(text, "true") || equalsIgnoringCase(text, "false");
        case TypeKind::String:
            return text.size() >= 2 && text.front() == '"' && text.back() == '"';
        default:
            return equalsIgnoringCase(text, "nil");
    }
}

std::optional<Param> parseParam(Cursor& c, std::string* error) {
    Param p;
    if (c.keyword("byref"))
        p.byref = true;
    else
        c.keyword("byval");
    p.name = c.ident();
    if (p.name.empty()) return *error = "parameter name expected", std::nullopt;
    if (c.take('(')) {
        if (!c.take(')')) return *error = "')' expected after array parameter " + p.name, std::nullopt;
        p.array = true;
    }
    if (!c.keyword("as")) return *error = "'as' expected after parameter " + p.name, std::nullopt;
    auto type = parseType(c.ident());
    if (!type) return *error = "type expected for parameter " + p.name, std::nullopt;
    p.type = *type;
    if (c.take('=')) {
        p.defaultText = c.until(",)");
        if (p.defaultText->empty()) return *error = "default value expected for " + p.name, std::nullopt;
        if (!validDefault(p.type, *p.defaultText))
            return *error = "default " + *p.defaultText + " is no " + typeName(p.type), std::nullopt;
    }
    return p;
}

bool parseParams(Cursor& c, Declaration& d, std::string* error) {
    if (c.take(')')) return true;
    do {
        auto p = parseParam(c, error);
        if (!p) return false;
        // Defaults fill trailing parameters only: a call cannot skip one in the middle.
        if (!p->defaultText && !d.params.empty() && d.params.back().defaultText)
            return *error = "parameter " + p->name + " after a default needs one too", false;
        d.params.push_back(std::move(*p));
    } while (c.take(','));
    if (!c.take(')')) return *error = "')' expected", false;
    return true;
}

}  // namespace

size_t Declaration::requiredParams() const {
    size_t n = params.size();
    while (n > 0 && params[n - 1].defaultText) --n;
    return n;
}

std::optional<Type> parseType(std::string_view text) {
    if (text.empty()) return std::nullopt;
    for (char ch : text)
        if (!isIdentChar(ch)) return std::nullopt;
    for (const auto& t : kTypes)
        if (equalsIgnoringCase(text, t.name)) return Type{t.kind, {}};
    return Type{TypeKind::Object, std::string(text)};
}

bool integerFits(TypeKind kind, int64_t value) {
    if (kind == TypeKind::Color) return value >= 0 && value <= UINT32_MAX;
    return value >= INT32_MIN && value <= INT32_MAX;
}

std::optional<int64_t> integerLiteral(std::string_view text, TypeKind kind) {
    std::string digits(text);
    bool negative = !digits.empty() && digits[0] == '-';
    if (negative) digits.erase(0, 1);
    int base = 10;
    if (digits.size() > 2 && digits[0] == '&' && (digits[1] == 'h' || digits[1] == 'H'))
        digits.erase(0, 2), base = 16;
    if (digits.empty() || !std::isxdigit(static_cast<unsigned char>(digits[0])) || digits.size() > 18)
        return std::nullopt;
    char* end = nullptr;
    int64_t value = std::strtoll(digits.c_str(), &end, base);
    if (*end != '\0') return std::nullopt;
    if (negative) value = -value;
    if (!integerFits(kind, value)) return std::nullopt;
    return value;
}

std::string typeName(const Type& type) {
    if (type.kind == TypeKind::Object) return type.className;
    for (const auto& t : kTypes)
        if (t.kind == type.kind) return t.name;
    return "";
}

std::optional<Declaration> parseDeclaration(std::string_view text, std::string* error) {
    std::string scratch;
    if (!error) error = &scratch;
    Cursor c(text);
    Declaration d;
    d.name = c.ident();
    if (d.name.empty()) return *error = "name expected", std::nullopt;
    if (c.take('(') && !parseParams(c, d, error)) return std::nullopt;
    if (c.keyword("as")) {
        auto type = parseType(c.ident());
        if (!type) return *error = "result type expected", std::nullopt;
        d.result = *type;
    }
    if (!c.atEnd()) return *error = "unexpected text after the declaration", std::nullopt;
    return d;
}

std::optional<ConstantDeclaration> parseConstant(std::string_view text, std::string* error) {
    std::string scratch;
    if (!error) error = &scratch;
    Cursor c(text);
    ConstantDeclaration k;
    k.name = c.ident();
    if (k.name.empty()) return *error = "constant name expected", std::nullopt;
    if (c.keyword("as")) c.ident();  // an optional type: the value's own form decides
    if (!c.take('=')) return *error = "'=' expected", std::nullopt;
    k.valueText = c.until("");
    if (k.valueText.empty()) return *error = "constant value expected", std::nullopt;
    return k;
}

}  // namespace tqvhost
