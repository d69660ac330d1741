#include "tqvhost/declaration.h"

#include <cctype>

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
    }
    return p;
}

bool parseParams(Cursor& c, Declaration& d, std::string* error) {
    if (c.take(')')) return true;
    do {
        auto p = parseParam(c, error);
        if (!p) return false;
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
