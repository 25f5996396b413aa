// The key tables of docs/format.md, read from the copy built into the tool.
//
// A key table is a markdown table whose header has the columns key, type
// and absent (and maybe width, notes, or a leading "#").  Which kind of
// table its rows describe is decided by the heading it is under and its
// place there, in doc_tables below; a few rows describe keys of a table
// nested in it (row_kinds).
#include "lsp/keydocs.h"

#include <algorithm>

namespace kivtool
{

namespace
{

// Under the heading numbered `heading`, key table number `ordinal` (from 0)
// holds the keys of `kind`.  `itself` names a row that describes the table
// itself rather than a key of it; `all_required` says the section makes
// every key required whatever the absent column says.
struct doc_table {
    std::string_view heading;
    int ordinal;
    std::string_view kind;
    std::string_view itself = {};
    bool all_required = false;
};
constexpr doc_table doc_tables[] = {
    {"3.1", 0, "top"},
    {"3.2", 0, "channel"},
    {"3.3", 0, "buffer"},
    {"3.3", 1, "pass_1"},
    {"3.4", 0, "pyramid"},
    {"3.5", 0, "vsrc"},
    {"3.6", 0, "virt_mode_cfg"},
    {"3.8", 0, "canvas"},
    {"3.9", 0, "stream"},
    {"3.10", 0, "mem_layout"},
    {"3.10", 1, "channels_mem"},
    {"3.10", 2, "streams_mem"},
    {"7", 0, "aisp", "_custom_aisp_config_", true},
};

// Rows of a `table` whose key cell holds `mark` describe a key of `kind`.
struct row_kind {
    std::string_view table, mark, kind;
};
constexpr row_kind row_kinds[] = {
    {"pyramid", "of `layers`", "layer"},
    {"aisp", "`boot_param.", "boot_param"},
    {"aisp", "network `", "network"},
    {"aisp", "interface `", "interface"},
    {"aisp", "map `", "map"},
};

// The record paths of the model's tables ("[]" stands for any index).
struct path_kind {
    std::string_view path, kind;
};
constexpr path_kind path_kinds[] = {
    {"", "top"},
    {"channels[]", "channel"},
    {"channels[].src_buf[][]", "buffer"},
    {"channels[].pass_cfg[1]", "pass_1"},
    {"channels[].pyramid", "pyramid"},
    {"channels[].pyramid.layers[]", "layer"},
    {"channels[].vsrc", "vsrc"},
    {"channels[].vsrc.virt_mode_cfg", "virt_mode_cfg"},
    {"canvas[]", "canvas"},
    {"streams[]", "stream"},
    {"resource_mem_layout", "mem_layout"},
    {"resource_mem_layout.channels_mem[]", "channels_mem"},
    {"resource_mem_layout.streams_mem[]", "streams_mem"},
    {"boot_param", "boot_param"},
    {"custom_nn[]", "network"},
    {"custom_nn[].interfaces[]", "interface"},
    {"custom_nn[].interfaces[].port", "map"},
    {"custom_nn[].interfaces[].poke", "map"},
};

bool has(std::string_view s, std::string_view part)
{
    return s.find(part) != std::string_view::npos;
}

std::string_view trim(std::string_view s)
{
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
        s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
        s.remove_suffix(1);
    return s;
}

// The text of code span number `n` (from 0) of a cell, "" when it has none.
std::string_view code_span(std::string_view cell, int n)
{
    for (size_t at = 0;;) {
        size_t open = cell.find('`', at);
        if (open == std::string_view::npos)
            return {};
        size_t close = cell.find('`', open + 1);
        if (close == std::string_view::npos)
            return {};
        if (n-- == 0)
            return cell.substr(open + 1, close - open - 1);
        at = close + 1;
    }
}

// A cell without its emphasis, for reading what it says.
std::string plain(std::string_view s)
{
    std::string out(s);
    std::erase(out, '*');
    return out;
}

// The cells of a table line: split at each '|' not escaped, "\|" read as '|'.
std::vector<std::string> cells_of(std::string_view line)
{
    line = trim(line);
    if (!line.empty() && line.front() == '|')
        line.remove_prefix(1);
    if (line.size() >= 2 && line.back() == '|' && line[line.size() - 2] != '\\')
        line.remove_suffix(1);
    std::vector<std::string> cells(1);
    for (size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\\' && i + 1 < line.size() && line[i + 1] == '|')
            cells.back() += line[++i];
        else if (line[i] == '|')
            cells.emplace_back();
        else
            cells.back() += line[i];
    }
    for (std::string &c : cells)
        c = std::string(trim(c));
    return cells;
}

bool is_separator(const std::vector<std::string> &cells)
{
    return std::all_of(cells.begin(), cells.end(), [](const std::string &c) {
        return has(c, "-") && c.find_first_not_of("-: ") == std::string::npos;
    });
}

struct md_table {
    std::string section; // the heading it is under
    int heading = 0;     // which heading that is, counted from 1 (0: none yet)
    std::vector<std::string> header;
    std::vector<std::vector<std::string>> rows;
};

// The tables of a markdown text, outside fenced code.
std::vector<md_table> tables_of(std::string_view md)
{
    std::vector<std::string_view> lines;
    for (size_t at = 0; at <= md.size();) {
        size_t end = std::min(md.find('\n', at), md.size());
        lines.push_back(md.substr(at, end - at));
        at = end + 1;
    }
    std::vector<md_table> tables;
    std::string section;
    int heading = 0;
    bool fenced = false;
    for (size_t i = 0; i < lines.size(); ++i) {
        std::string_view line = trim(lines[i]);
        if (line.starts_with("```") || line.starts_with("~~~")) {
            fenced = !fenced;
            continue;
        }
        if (fenced)
            continue;
        size_t hashes = line.find_first_not_of('#');
        if (hashes >= 1 && hashes <= 6 && hashes < line.size() && line[hashes] == ' ') {
            section = std::string(trim(line.substr(hashes)));
            ++heading;
            continue;
        }
        if (!line.starts_with('|') || i + 1 == lines.size() ||
            !trim(lines[i + 1]).starts_with('|') || !is_separator(cells_of(lines[i + 1])))
            continue;
        md_table t{section, heading, cells_of(line), {}};
        for (i += 2; i < lines.size() && trim(lines[i]).starts_with('|'); ++i)
            t.rows.push_back(cells_of(lines[i]));
        --i;
        tables.push_back(std::move(t));
    }
    return tables;
}

int column(const md_table &t, std::string_view name)
{
    auto it = std::find(t.header.begin(), t.header.end(), name);
    return it == t.header.end() ? -1 : static_cast<int>(it - t.header.begin());
}

// The number a heading starts with, without a final dot ("3.5", "7").
std::string_view heading_number(std::string_view section)
{
    std::string_view n = section.substr(0, section.find(' '));
    if (n.ends_with('.'))
        n.remove_suffix(1);
    return n;
}

// The names a key cell stands for: `a` ... `b` is every name from a to b of
// a list of names (a table with the columns index and name); else the
// first code span.
std::vector<std::string> names_of(std::string_view cell, const std::vector<md_table> &tables)
{
    std::string_view first = code_span(cell, 0), last = code_span(cell, 1);
    if (last.empty() || !has(cell, "` ... `"))
        return {std::string(first)};
    for (const md_table &t : tables) {
        int name = column(t, "name");
        if (column(t, "index") < 0 || name < 0)
            continue;
        std::vector<std::string> list;
        for (const auto &row : t.rows)
            if (static_cast<size_t>(name) < row.size())
                list.emplace_back(code_span(row[name], 0));
        auto a = std::find(list.begin(), list.end(), first);
        auto b = std::find(list.begin(), list.end(), last);
        if (a != list.end() && b != list.end() && a <= b)
            return std::vector<std::string>(a, b + 1);
    }
    return {std::string(first), std::string(last)};
}

// A missing key fails its table: the absent column says required, or gives
// the failing result ("`no canvas cfg found` (-2)").
bool says_required(std::string_view absent, std::string_view key)
{
    std::string p = plain(absent);
    // "`main` required": the first of a range of names only.
    if (p.starts_with('`') && has(p, "` required"))
        return code_span(p, 0) == key;
    return has(p, "required") || has(p, "(-1") || has(p, "(-2");
}

// Read only behind a switch: the notes start with when it is read ("only
// when `efm_enable` is on", "read only for `"prev"`"), or the absent column
// says "required when ...".
bool says_gated(std::string_view absent, std::string_view notes)
{
    std::string n = plain(notes);
    return n.starts_with("read only when") || n.starts_with("read only for") ||
           n.starts_with("only when") || has(plain(absent), "required when");
}

bool is_number(std::string_view v)
{
    if (v.starts_with('-'))
        v.remove_prefix(1);
    const char *digits = "0123456789";
    if (v.starts_with("0x") && v.size() > 2) {
        v.remove_prefix(2);
        digits = "0123456789abcdefABCDEF";
    }
    return !v.empty() && v.find_first_not_of(digits) == std::string_view::npos;
}

// "default 0", "default **1** (the WARN says 0)" -> "0", "1"; a value
// before a comma ("0, `KIV_WARN:: ...`", "{0, 0}, ...") -> that value.
std::string default_of(std::string_view absent)
{
    const std::string p = plain(absent);
    std::string_view s = p;
    if (s.starts_with("default ")) {
        s = trim(s.substr(8));
        return std::string(s.substr(0, s.find_first_of(" ,;(")));
    }
    if (s.starts_with('{')) {
        size_t close = s.find('}');
        if (close == std::string_view::npos || (close + 1 < s.size() && s[close + 1] != ','))
            return {};
        return std::string(s.substr(0, close + 1));
    }
    std::string_view v = s.substr(0, s.find(','));
    return is_number(v) ? std::string(v) : std::string();
}

// The scaling lists' table: a row per list, its list key and its DC key
// (kind "hevc"), each column's type in its header's parentheses ("list key
// (array of up to 64 integers)").  Every key is optional.
void add_scaling_keys(const md_table &t, std::vector<key_doc> &docs)
{
    const int size = column(t, "size"), list = column(t, "list");
    // A row's list key, then its DC key: the reading order.
    for (const auto &row : t.rows)
        for (size_t c = 0; c < t.header.size() && c < row.size(); ++c) {
            const std::string &h = t.header[c];
            const bool dc = h.starts_with("DC key (");
            if (!dc && !h.starts_with("list key ("))
                continue;
            const std::string_view name = code_span(row[c], 0);
            if (name.empty())
                continue;
            auto cell = [&](int i) {
                return i >= 0 && static_cast<size_t>(i) < row.size() ? row[i] : std::string();
            };
            docs.push_back(key_doc{
                "hevc", std::string(name), h.substr(h.find('(') + 1, h.size() - h.find('(') - 2),
                dc ? "the list's first coefficient; `KIV_WARN:: ...: item(<key>) doesn't exist`"
                   : "all 0; `array item(<key>) doesn't exist` and a WARN",
                "32 bits each",
                (dc ? "DC value of the " : "") + cell(size) + " " + cell(list) + " list", t.section,
                false, false, dc ? "" : "0"});
        }
}

} // namespace

std::vector<key_doc> parse_key_docs(std::string_view markdown)
{
    const std::vector<md_table> tables = tables_of(markdown);
    std::vector<key_doc> docs;
    for (const md_table &t : tables)
        if (heading_number(t.section) == "6" && column(t, "size") >= 0)
            add_scaling_keys(t, docs);
    int heading = -1, ordinal = 0;
    for (const md_table &t : tables) {
        int key = column(t, "key"), type = column(t, "type"), absent = column(t, "absent");
        if (key < 0 || type < 0 || absent < 0)
            continue;
        if (t.heading != heading) {
            heading = t.heading;
            ordinal = 0;
        }
        const doc_table *mapped = nullptr;
        for (const doc_table &d : doc_tables)
            if (d.heading == heading_number(t.section) && d.ordinal == ordinal)
                mapped = &d;
        ++ordinal;
        if (!mapped)
            continue;
        int width = column(t, "width"), notes = column(t, "notes");
        for (const auto &row : t.rows) {
            auto cell = [&](int c) {
                return c >= 0 && static_cast<size_t>(c) < row.size() ? row[c] : std::string();
            };
            const std::string k = cell(key);
            std::string_view name = code_span(k, 0);
            if (name.empty() || has(k, "(itself)") || name == mapped->itself)
                continue;
            std::string_view kind = mapped->kind;
            for (const row_kind &r : row_kinds)
                if (r.table == mapped->kind && has(k, r.mark))
                    kind = r.kind;
            for (std::string n : names_of(k, tables)) {
                n.erase(0, n.rfind('.') + 1); // boot_param.fifo_addr
                const std::string a = cell(absent), note = cell(notes);
                docs.push_back(key_doc{std::string(kind), n, cell(type), a, cell(width), note,
                                       t.section, mapped->all_required || says_required(a, n),
                                       says_gated(a, note), default_of(a)});
            }
        }
    }
    return docs;
}

const std::vector<key_doc> &key_docs()
{
    static const std::vector<key_doc> docs = parse_key_docs(format_reference());
    return docs;
}

std::vector<const key_doc *> keys_of(std::string_view table)
{
    std::vector<const key_doc *> keys;
    for (const key_doc &d : key_docs())
        if (d.table == table)
            keys.push_back(&d);
    return keys;
}

const key_doc *find_key(std::string_view table, std::string_view key)
{
    for (const key_doc &d : key_docs())
        if (d.table == table && d.key == key)
            return &d;
    return nullptr;
}

std::string table_kind(std::string_view path)
{
    // A pattern matches a path when they agree but for "[]", which stands
    // for any index.
    auto matches = [path](std::string_view pattern) {
        size_t p = 0;
        for (size_t i = 0; i < pattern.size(); ++i, ++p) {
            if (pattern.substr(i, 2) == "[]" && p < path.size() && path[p] == '[') {
                p = path.find(']', p);
                if (p == std::string_view::npos)
                    return false;
                ++i;
            } else if (p >= path.size() || path[p] != pattern[i]) {
                return false;
            }
        }
        return p == path.size();
    };
    for (const path_kind &k : path_kinds)
        if (matches(k.path))
            return std::string(k.kind);
    return {};
}

} // namespace kivtool
