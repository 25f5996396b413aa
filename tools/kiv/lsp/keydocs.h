// The documentation of each key a script gives, as hover and completion
// show it: the rows of the key tables of the script author's reference,
// docs/format.md, which is built into the tool, so that the two never
// disagree.
#ifndef KIV_TOOL_LSP_KEYDOCS_H
#define KIV_TOOL_LSP_KEYDOCS_H

#include <string>
#include <string_view>
#include <vector>

namespace kivtool
{

struct key_doc {
    std::string table;  // the kind of table ("top", "channel", "vsrc", ...: see keydocs.cpp)
    std::string key;    // "vsrc_id"
    std::string type;   // the type column: "integer", "string", "array of 2 integers", "table", ...
    std::string absent; // the absent column as written ("default 0", "**required** (-2)"), markdown
    std::string width;  // the width column ("8 bits"), "" when empty or absent
    std::string notes;  // the notes column, markdown, may be ""
    std::string section; // the heading the table is under: "3.5 `vsrc`: the video source"
    bool required;       // a missing key fails its table (or the load)
    bool gated;          // read only when a switch before it is on
    std::string dflt;    // the value a missing key takes when the absent column gives one, else ""
};

// Every key of every key table of the reference, in the reference's order
// (which is the reading order).
const std::vector<key_doc> &key_docs();
// The keys of one kind of table, in reading order.
std::vector<const key_doc *> keys_of(std::string_view table);
// One key of one kind of table; null when the reference has no such row.
const key_doc *find_key(std::string_view table, std::string_view key);
// The kind of table at a record path of the model (script_model::tables[i].path:
// "channels[0].vsrc" -> "vsrc", "" -> "top"), or "" when the path is no key
// table.  The root of a custom AISP script is "" too: its kind is "aisp".
std::string table_kind(std::string_view path);

// The key tables of a reference text.  Takes any text: what is not a key
// table it knows is left out.
std::vector<key_doc> parse_key_docs(std::string_view markdown);

// The reference, docs/format.md, as built into the tool.
std::string_view format_reference();

} // namespace kivtool

#endif
