// Declarations of registered methods, events, properties and constants, as a host program reads
// them: "Name(params) as Type", "Name as Type", "Name", "Name(params)"; a parameter is
// "[byref] name as Type [= default]" or an array "name() as Type". Keywords and type names are
// case-insensitive.
#ifndef TQVHOST_DECLARATION_H
#define TQVHOST_DECLARATION_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tqvhost {

enum class TypeKind {
    None,
    Integer,
    Boolean,
    Single,
    Double,
    Color,
    String,
    MemoryBlock,
    Picture,
    FolderItem,
    Graphics,
    Object
};

struct Type {
    TypeKind kind = TypeKind::None;
    std::string className;  // TypeKind::Object: the class named in the declaration
    bool isHandle() const { return kind >= TypeKind::String; }
};

struct Param {
    std::string name;
    Type type;
    bool byref = false;
    bool array = false;
    std::optional<std::string> defaultText;  // as written after '='
};

struct Declaration {
    std::string name;
    std::vector<Param> params;
    Type result;  // TypeKind::None: no result
    size_t requiredParams() const;
};

// A type name ("Integer", "picture", "TiffPictureTQV", ...); unknown names are class names.
std::optional<Type> parseType(std::string_view text);
std::optional<Declaration> parseDeclaration(std::string_view text, std::string* error);

struct ConstantDeclaration {
    std::string name;
    std::string valueText;
};
std::optional<ConstantDeclaration> parseConstant(std::string_view text, std::string* error);

// Whether an integer is a value of Integer (32-bit signed) or Color (32-bit unsigned).
bool integerFits(TypeKind kind, int64_t value);
// The value of an Integer or Color literal as a declaration writes it ("42", "-7", "&hFF"), if the
// text is one and the value fits the type.
std::optional<int64_t> integerLiteral(std::string_view text, TypeKind kind);

// "Integer", "Boolean", ... or the class name.
std::string typeName(const Type& type);
bool equalsIgnoringCase(std::string_view a, std::string_view b);

}  // namespace tqvhost

#endif  // TQVHOST_DECLARATION_H
