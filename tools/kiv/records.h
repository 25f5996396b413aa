// One description of every record the library fills: for each record type a
// table of its members, nested like the record.  `show`, `diff`, the JSON
// output and the standalone subcommands all walk these tables, so a member
// is named in exactly one place.
#ifndef KIV_TOOL_RECORDS_H
#define KIV_TOOL_RECORDS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kivtool
{

enum class kind { integer, text, record, array };

struct record_desc;

// One member of a record, or the element of an array (then `name` is empty
// and the member is described at the element's own address).
struct field {
    const char *name = "";
    kind k = kind::integer;
    // integer: reads and writes the value through the address of the record
    // that holds it (bit-fields have no address of their own).
    int64_t (*get)(const void *holder) = nullptr;
    void (*set)(void *holder, int64_t value) = nullptr;
    bool hex = false; // shown in hexadecimal in text output
    // text, record, array: where the member starts inside its holder.
    size_t offset = 0;
    // text: capacity in bytes (NUL included); array: the stride of one element.
    size_t size = 0;
    const record_desc *rec = nullptr;  // record
    size_t count = 0;                  // array
    std::shared_ptr<const field> elem; // array
};

struct record_desc {
    const char *name; // the C type
    size_t size;
    std::vector<field> members;
};

// The top-level records of the exported functions.
const record_desc &multi_chan_desc();
const record_desc &calib_item_desc();
const record_desc &hevc_scaling_desc();
const record_desc &aisp_desc();

// Every record type, top-level and nested, for tests that check the
// description against the records' layout.
std::vector<const record_desc *> all_record_descs();

} // namespace kivtool

#endif
