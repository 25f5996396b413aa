// Writing a described record: as an indented text tree, as JSON, or as a
// flat list of (path, value) for comparing two records.
#ifndef KIV_TOOL_RENDER_H
#define KIV_TOOL_RENDER_H

#include <nlohmann/json.hpp>

#include <ostream>
#include <string>
#include <vector>

#include "records.h"

namespace kivtool
{

using json = nlohmann::ordered_json;

// One "name = value" line per scalar member, an integer array on one line
// ("name = [a, b]"), a sub-record or record array element as a "name:" line
// followed by its members indented by two more blanks.
void write_text(std::ostream &out, const record_desc &desc, const void *rec, int indent = 0);

// The record as a JSON object, members in declaration order.
json to_json(const record_desc &desc, const void *rec);

// Every scalar of the record with its full path ("channels[0].vsrc.fps"),
// in declaration order; values as write_text shows them.
struct leaf_value {
    std::string path;
    std::string value;
};
std::vector<leaf_value> flatten(const record_desc &desc, const void *rec);

// The value of an integer member as text (hexadecimal when the member asks
// for it).
std::string format_integer(const field &f, const void *holder);

} // namespace kivtool

#endif
