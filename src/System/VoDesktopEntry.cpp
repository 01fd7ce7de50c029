// SPDX-License-Identifier: MIT
#include "VoDesktopEntry_p.h"

#include <fstream>

namespace vo::detail {

namespace {

std::string trim(const std::string& s) {
    const size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos) return "";
    const size_t e = s.find_last_not_of(" \t\r");
    return s.substr(b, e - b + 1);
}

}  // namespace

std::optional<std::map<std::string, std::string>> readDesktopEntry(const std::filesystem::path& file) {
    std::ifstream in(file);
    if (!in) return std::nullopt;
    std::map<std::string, std::string> values;
    bool inGroup = false, found = false;
    std::string line;
    while (std::getline(in, line)) {
        const std::string t = trim(line);
        if (t.empty() || t[0] == '#') continue;
        if (t[0] == '[') {
            inGroup = t == "[Desktop Entry]";
            found = found || inGroup;
            continue;
        }
        if (!inGroup) continue;
        const size_t eq = t.find('=');
        if (eq == std::string::npos) continue;
        const std::string key = trim(t.substr(0, eq));
        if (key.find('[') != std::string::npos) continue;  // a localised variant
        values[key] = unescapeDesktopValue(trim(t.substr(eq + 1)));
    }
    if (!found) return std::nullopt;
    return values;
}

std::string escapeDesktopValue(const std::string& value) {
    std::string out;
    for (size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        switch (c) {
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\r':
                out += "\\r";
                break;
            // Readers trim blanks after "=", so a leading one must be written as an escape.
            case ' ':
                out += i == 0 ? "\\s" : " ";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string unescapeDesktopValue(const std::string& value) {
    std::string out;
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            out += value[i];
            continue;
        }
        switch (const char c = value[++i]) {
            case 's':
                out += ' ';
                break;
            case 'n':
                out += '\n';
                break;
            case 't':
                out += '\t';
                break;
            case 'r':
                out += '\r';
                break;
            case '\\':
                out += '\\';
                break;
            default:
                out += '\\';
                out += c;  // other escapes (";" in lists) are not ours to interpret
        }
    }
    return out;
}

std::string quoteExecArgument(const std::string& argument) {
    std::string out = "\"";
    for (const char c : argument) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') out += '\\';
        if (c == '%') out += '%';
        out += c;
    }
    out += '"';
    return out;
}

std::string execProgram(const std::string& exec) {
    size_t i = exec.find_first_not_of(' ');
    if (i == std::string::npos) return "";
    std::string program;
    if (exec[i] == '"') {
        for (++i; i < exec.size() && exec[i] != '"'; ++i) {
            if (exec[i] == '\\' && i + 1 < exec.size()) ++i;
            program += exec[i];
        }
    } else {
        const size_t end = exec.find(' ', i);
        program = exec.substr(i, end == std::string::npos ? std::string::npos : end - i);
    }
    // "%%" is a literal percent sign.
    std::string out;
    for (size_t k = 0; k < program.size(); ++k) {
        out += program[k];
        if (program[k] == '%' && k + 1 < program.size() && program[k + 1] == '%') ++k;
    }
    return out;
}

}  // namespace vo::detail
