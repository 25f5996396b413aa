#include "model/names.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace kivtool
{

size_t name_distance(std::string_view a, std::string_view b)
{
    // Two rows back for the swap of neighbours.
    std::vector<size_t> prev2(b.size() + 1), prev(b.size() + 1), row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        prev[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            row[j] = std::min({prev[j] + 1, row[j - 1] + 1, prev[j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], prev2[j - 2] + 1);
        }
        std::swap(prev2, prev);
        std::swap(prev, row);
    }
    return prev[b.size()];
}

namespace
{

bool same_letters(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return tolower(static_cast<unsigned char>(x)) ==
                      tolower(static_cast<unsigned char>(y));
           });
}

} // namespace

std::string nearest_name(std::string_view word, const std::vector<std::string> &names)
{
    std::string best;
    size_t best_d = word.size() / 3 + 1;
    for (const std::string &n : names) {
        if (n == word)
            continue;
        if (same_letters(n, word))
            return n;
        // One begins the other ("prev" in "preview").
        if (std::min(n.size(), word.size()) >= 3 && best.empty() &&
            (n.starts_with(word) || word.starts_with(n))) {
            best = n;
            best_d = name_distance(word, n);
            continue;
        }
        const size_t d = name_distance(word, n);
        if (d < best_d || (d == best_d && best.empty() && d <= 2 && n.size() > 2)) {
            best_d = d;
            best = n;
        }
    }
    return best;
}

std::string did_you_mean(std::string_view word, const std::vector<std::string> &names,
                         const char *quote)
{
    const std::string n = nearest_name(word, names);
    if (n.empty())
        return n;
    std::string out = "; did you mean ";
    out.append(quote).append(n).append(quote).append("?");
    return out;
}

// Whether a value is written out in the script (a number, a string, a
// table constructor, true, false or nil) rather than taken from a variable,
// a call or an operation.
bool literal(std::string_view v)
{
    if (v.empty())
        return false;
    const char c = v[0];
    if (isdigit(static_cast<unsigned char>(c)) || c == '"' || c == '\'' || c == '{' || c == '[' ||
        (c == '.' && v.size() > 1 && isdigit(static_cast<unsigned char>(v[1]))))
        return true;
    if (c == '-')
        return literal(v.substr(1));
    return v == "true" || v == "false" || v == "nil";
}

// A value written out in the script: a literal, or a constructor of
// literals only (`{0, 0, 1920, 1080}`, not `{x, y, w, h}`).
bool written_out(std::string_view v)
{
    if (!literal(v))
        return false;
    if (v[0] != '{')
        return true;
    char quote = 0;
    for (size_t i = 0; i < v.size(); ++i) {
        const char c = v[i];
        if (quote) {
            if (c == '\\')
                ++i;
            else if (c == quote)
                quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (isalpha(static_cast<unsigned char>(c)) || c == '_') {
            // A name, unless it is a number's hexadecimal digits or exponent.
            const bool in_number =
                i > 0 && (isalnum(static_cast<unsigned char>(v[i - 1])) || v[i - 1] == '.');
            if (!in_number)
                return false;
        }
    }
    return true;
}

std::string describe_value(lua_State *L, int idx)
{
    switch (lua_type(L, idx)) {
    case LUA_TSTRING: {
        size_t len = 0;
        const char *s = lua_tolstring(L, idx, &len);
        std::string out = "\"";
        out.append(s, std::min<size_t>(len, 40));
        return out.append(len > 40 ? "...\"" : "\"");
    }
    case LUA_TNUMBER:
        if (lua_isinteger(L, idx))
            return std::to_string(lua_tointeger(L, idx));
        else {
            char buf[32];
            snprintf(buf, sizeof buf, "%.14g", lua_tonumber(L, idx));
            return buf;
        }
    case LUA_TBOOLEAN:
        return lua_toboolean(L, idx) ? "true" : "false";
    default:
        return std::string("a ") + lua_typename(L, lua_type(L, idx));
    }
}

} // namespace kivtool
