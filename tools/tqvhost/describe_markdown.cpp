// `tqvhost describe --markdown`: the registered vocabulary as Markdown tables, one section per
// class, class extension and the global methods, rows in registration order. The first cell of
// every row names the member exactly as `describe` does (a name, or a declaration), so that
// documentation tools can key notes on it.
#include "describe_markdown.h"

#include <algorithm>
#include <string>
#include <vector>

namespace tqvhost::markdown {

namespace {

std::vector<std::string> split(const std::string& line) {
    std::vector<std::string> fields;
    size_t start = 0;
    for (;;) {
        size_t tab = line.find('\t', start);
        fields.push_back(line.substr(start, tab == std::string::npos ? std::string::npos : tab - start));
        if (tab == std::string::npos) return fields;
        start = tab + 1;
    }
}

std::string field(const std::vector<std::string>& f, size_t i) {
    return i < f.size() ? f[i] : "";
}

// A table cell: pipes would end the cell, line breaks the row.
std::string cell(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '|')
            out += "\\|";
        else if (c == '\n' || c == '\r')
            out += ' ';
        else
            out += c;
    }
    return out;
}

// Appended piece by piece: GCC 12 at -O3 warns wrongly (-Wrestrict) about "`" + string.
std::string code(const std::string& text) {
    std::string out(1, '`');
    out += cell(text);
    out += '`';
    return out;
}

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(' ');
    size_t e = s.find_last_not_of(' ');
    return b == std::string::npos ? "" : s.substr(b, e - b + 1);
}

std::string accessText(const std::string& access) {
    if (access == "rw") return "read-write";
    if (access == "r") return "read-only";
    if (access == "field") return "read-write (instance field)";
    return access;
}

// Groups consecutive rows of one kind into a table; a kind change closes the table.
class Writer {
  public:
    explicit Writer(std::string* out) : out_(out) {}

    void heading(const std::string& text) {
        close();
        *out_ += "\n" + text + "\n";
    }
    void paragraph(const std::string& text) { *out_ += "\n" + text + "\n"; }

    void row(const std::string& kind, const std::string& header, const std::string& line) {
        if (kind != table_) {
            close();
            table_ = kind;
            *out_ += "\n" + header + "\n|";
            for (size_t i = 1; i < static_cast<size_t>(std::count(header.begin(), header.end(), '|')); ++i)
                *out_ += "---|";
            *out_ += "\n";
        }
        *out_ += line + "\n";
    }

    void close() { table_.clear(); }

  private:
    std::string* out_;
    std::string table_;
};

}  // namespace

std::string render(const std::vector<std::string>& describeLines, const std::string& pluginName) {
    std::string out = "# Vocabulary of " + pluginName + "\n";
    Writer w(&out);
    std::string section;  // "class", "extension" or "global"
    for (const auto& line : describeLines) {
        auto f = split(line);
        const std::string& kind = f[0];
        if (kind == "class") {
            section = kind;
            w.heading("## Class " + code(field(f, 1)));
            w.paragraph("Class flags " + field(f, 2) + "; instance data " + field(f, 3) + " bytes.");
        } else if (kind == "property") {
            w.row(kind, "| Property | Type | Access | Flags |",
                  "| " + code(field(f, 1)) + " | " + cell(field(f, 3)) + " | " + accessText(field(f, 4)) +
                      " | " + field(f, 2) + " |");
        } else if (kind == "method") {
            w.row(kind, "| Method | Flags | Assignable |",
                  "| " + code(field(f, 1)) + " | " + field(f, 2) + " | " +
                      (field(f, 3) == "setter" ? "yes" : "") + " |");
        } else if (kind == "event") {
            w.row(kind, "| Event |", "| " + code(field(f, 1)) + " |");
        } else if (kind == "constant") {
            // Declared as "name = value".
            std::string decl = field(f, 1);
            size_t eq = decl.find('=');
            std::string name = trim(decl.substr(0, eq));
            std::string value = eq == std::string::npos ? "" : trim(decl.substr(eq + 1));
            w.row(kind, "| Constant | Value | Flags |",
                  "| " + code(name) + " | " + cell(value) + " | " + field(f, 2) + " |");
        } else if (kind == "extension") {
            section = kind;
            w.heading("## Extension of " + code(field(f, 1)));
            w.paragraph("Flags " + field(f, 2) + ".");
        } else if (kind == "extension-method") {
            w.row(kind, "| Extension method | Flags |",
                  "| " + code(field(f, 1)) + " | " + field(f, 2) + " |");
        } else if (kind == "global") {
            if (section != kind) w.heading("## Global methods");
            section = kind;
            w.row(kind, "| Global method | Flags |", "| " + code(field(f, 1)) + " | " + field(f, 2) + " |");
        } else {
            w.row(kind, "| Item | Fields |", "| " + code(field(f, 1)) + " | " + cell(line) + " |");
        }
    }
    return out;
}

}  // namespace tqvhost::markdown
