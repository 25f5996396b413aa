// Walks of the record description: text tree, JSON and flat path list.
#include "render.h"

#include "common.h"

#include <cstdio>
#include <cstring>

namespace kivtool
{

namespace
{

const unsigned char *at(const void *p, size_t offset)
{
    return static_cast<const unsigned char *>(p) + offset;
}

// A text member up to its first NUL, never past its capacity.
std::string text_of(const field &f, const void *holder)
{
    const char *s = reinterpret_cast<const char *>(at(holder, f.offset));
    return std::string(s, strnlen(s, f.size));
}

// The length of the valid UTF-8 sequence at s[i], or 0 when it is not one.
size_t utf8_at(const std::string &s, size_t i)
{
    const unsigned char c = static_cast<unsigned char>(s[i]);
    size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (n == 0 || i + n > s.size() || (n == 2 && c < 0xC2))
        return 0;
    for (size_t k = 1; k < n; ++k)
        if ((static_cast<unsigned char>(s[i + k]) >> 6) != 2)
            return 0;
    return n;
}

// A string in double quotes, escaped as JSON escapes it; a byte that is not
// part of valid UTF-8 is written \xNN (and noted once per process).
std::string quoted(const std::string &s)
{
    std::string clean, out = "\"";
    bool bad = false;
    for (size_t i = 0; i < s.size();) {
        size_t n = utf8_at(s, i);
        if (n == 0) {
            char buf[8];
            snprintf(buf, sizeof buf, "\\x%02x", static_cast<unsigned char>(s[i]));
            out += json(clean).dump().substr(1, std::string::npos);
            out.pop_back();
            out += buf;
            clean.clear();
            bad = true;
            ++i;
            continue;
        }
        clean.append(s, i, n);
        i += n;
    }
    out += json(clean).dump().substr(1);
    if (bad)
        note_bad_utf8("shown as \\xNN");
    return out;
}

// Integer arrays of any dimension nest as brackets: "[[1, 2], [3, 4]]".
std::string integer_array(const field &arr, const void *first)
{
    std::string s = "[";
    for (size_t i = 0; i < arr.count; ++i) {
        const void *e = at(first, i * arr.size);
        if (i)
            s += ", ";
        s +=
            arr.elem->k == kind::array ? integer_array(*arr.elem, e) : format_integer(*arr.elem, e);
    }
    return s + "]";
}

// The innermost element kind of an array.
kind leaf_kind(const field &arr)
{
    const field *f = &arr;
    while (f->k == kind::array)
        f = f->elem.get();
    return f->k;
}

void write_member(std::ostream &out, const field &f, const void *holder, const std::string &name,
                  int indent)
{
    const std::string pad(static_cast<size_t>(indent), ' ');
    switch (f.k) {
    case kind::integer:
        out << pad << name << " = " << format_integer(f, holder) << '\n';
        break;
    case kind::text:
        out << pad << name << " = " << quoted(text_of(f, holder)) << '\n';
        break;
    case kind::record:
        out << pad << name << ":\n";
        write_text(out, *f.rec, at(holder, f.offset), indent + 2);
        break;
    case kind::array:
        if (leaf_kind(f) == kind::integer && f.elem->k == kind::integer) {
            out << pad << name << " = " << integer_array(f, at(holder, f.offset)) << '\n';
            break;
        }
        // Records, and integer arrays of two or more dimensions, one element
        // per line (or block) under "name[i]".
        for (size_t i = 0; i < f.count; ++i) {
            const void *e = at(holder, f.offset + i * f.size);
            write_member(out, *f.elem, e, name + "[" + std::to_string(i) + "]", indent);
        }
        break;
    }
}

json member_json(const field &f, const void *holder)
{
    switch (f.k) {
    case kind::integer:
        return f.get(holder);
    case kind::text:
        return text_of(f, holder);
    case kind::record:
        return to_json(*f.rec, at(holder, f.offset));
    case kind::array: {
        json a = json::array();
        for (size_t i = 0; i < f.count; ++i)
            a.push_back(member_json(*f.elem, at(holder, f.offset + i * f.size)));
        return a;
    }
    }
    return nullptr;
}

void flatten_member(std::vector<leaf_value> &out, const field &f, const void *holder,
                    const std::string &path)
{
    switch (f.k) {
    case kind::integer:
        out.push_back({path, format_integer(f, holder)});
        break;
    case kind::text:
        out.push_back({path, quoted(text_of(f, holder))});
        break;
    case kind::record:
        for (const field &m : f.rec->members)
            flatten_member(out, m, at(holder, f.offset), path + "." + m.name);
        break;
    case kind::array:
        for (size_t i = 0; i < f.count; ++i)
            flatten_member(out, *f.elem, at(holder, f.offset + i * f.size),
                           path + "[" + std::to_string(i) + "]");
        break;
    }
}

} // namespace

std::string format_integer(const field &f, const void *holder)
{
    int64_t v = f.get(holder);
    if (!f.hex || v < 0)
        return std::to_string(v);
    char buf[24];
    snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(v));
    return buf;
}

void write_text(std::ostream &out, const record_desc &desc, const void *rec, int indent)
{
    for (const field &m : desc.members)
        write_member(out, m, rec, m.name, indent);
}

json to_json(const record_desc &desc, const void *rec)
{
    json o = json::object();
    for (const field &m : desc.members)
        o[m.name] = member_json(m, rec);
    return o;
}

std::vector<leaf_value> flatten(const record_desc &desc, const void *rec)
{
    std::vector<leaf_value> out;
    for (const field &m : desc.members)
        flatten_member(out, m, rec, m.name);
    return out;
}

} // namespace kivtool
