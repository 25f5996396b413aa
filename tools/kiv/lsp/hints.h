// Inlay hints: what the loader stores where it differs from what the
// script wrote, shown after the value: a frame rate as the whole and
// thousandths it becomes, an integer cut to its field, a channel or stream
// that the dump files under another name than its place in the script.
// A value kept as written gets none, so a sound script shows nothing.
#ifndef KIV_TOOL_LSP_HINTS_H
#define KIV_TOOL_LSP_HINTS_H

#include <cstdint>
#include <optional>
#include <string>

#include "lsp/server.h"
#include "lsp/text.h"

namespace kivtool::lsp
{

// What the loader kept of a frame rate of a multi-channel record: a rate
// whole and in thousandths, a ceiling (max_fps, default_fps) in thousandths
// alone, as the record's enable_hp_fps reads the integer it was given.
struct stored_rate {
    bool ceiling = false;
    bool hp = false;              // the record's enable_hp_fps
    std::optional<int64_t> given; // the integer the loader took; none: not an integer, loaded as 0
    uint32_t whole = 0, thousandths = 0;
    // The rate stored is not the rate written: rounded up to whole frames,
    // cut to its field, or not an integer at all.
    bool changed() const;
};

// The rate the loader stored at a record path ("channels[0].idsp_fps");
// none for a path that holds no rate or that the loader did not read.
std::optional<stored_rate> rate_at(const script_model &m, const std::string &path);

// "With `enable_hp_fps = 1`, 29970 is 29.970 frames per second: stored as
// 30 whole and 29970 thousandths." for a value written as `written`.
std::string rate_sentence(const stored_rate &r, const std::string &written);

// The hints of the buffer's last check whose places stand in its text as it
// is now, within `asked`.
json inlay_hints(const document &d, const range &asked);

} // namespace kivtool::lsp

#endif
