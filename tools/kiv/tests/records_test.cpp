// The record description must name every bit the library can write: each
// record type is filled through the description's setters alone, and what
// stays clear must be exactly the reserved members, the unnamed bit-fields
// and the alignment padding listed here.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "kiv.h"
#include "records.h"

using namespace kivtool;

namespace
{

using bits = std::vector<unsigned char>;

bool bit(const bits &b, size_t i)
{
    return (b[i / 8] >> (i % 8)) & 1;
}

// Marks the bits member `f` (of the record at byte `holder`) owns in
// `covered`: an integer owns what its setter writes on a clear record, a text
// or a sub-record its bytes (a sub-record type is checked on its own), an
// array what its elements own.  Fails when two members own the same bit, or
// when a getter does not read back what its setter wrote.
void cover(const field &f, size_t holder, bits &covered, const std::string &name)
{
    SCOPED_TRACE(name);
    bits rec(covered.size(), 0);
    switch (f.k) {
    case kind::integer:
        f.set(rec.data() + holder, -1);
        EXPECT_NE(f.get(rec.data() + holder), 0) << "the getter reads another place";
        break;
    case kind::text:
        memset(rec.data() + holder + f.offset, 0xff, f.size);
        break;
    case kind::record:
        memset(rec.data() + holder + f.offset, 0xff, f.rec->size);
        break;
    case kind::array:
        for (size_t i = 0; i < f.count; ++i)
            cover(*f.elem, holder + f.offset + i * f.size, covered,
                  name + "[" + std::to_string(i) + "]");
        return;
    }
    for (size_t i = 0; i < rec.size() * 8; ++i) {
        if (!bit(rec, i))
            continue;
        EXPECT_FALSE(bit(covered, i)) << "overlaps an earlier member at bit " << i;
        covered[i / 8] |= static_cast<unsigned char>(1u << (i % 8));
    }
    if (f.k == kind::integer) {
        f.set(rec.data() + holder, 0);
        EXPECT_EQ(f.get(rec.data() + holder), 0);
    }
}

// The clear bits of a record type as (first bit, count) runs.
std::vector<std::pair<size_t, size_t>> clear_runs(const record_desc &d)
{
    bits covered(d.size, 0);
    for (const field &m : d.members)
        cover(m, 0, covered, m.name);
    std::vector<std::pair<size_t, size_t>> runs;
    for (size_t i = 0; i < d.size * 8; ++i) {
        if (bit(covered, i))
            continue;
        if (!runs.empty() && runs.back().first + runs.back().second == i)
            ++runs.back().second;
        else
            runs.push_back({i, 1});
    }
    return runs;
}

constexpr size_t U = 8; // bits per byte, for the offsets below

// What the description leaves out, per record type: reserved members,
// unnamed bit-fields and padding, as (first bit, count).
const std::map<std::string, std::vector<std::pair<size_t, size_t>>> &not_described()
{
#define AT(T, m) (offsetof(T, m) * U)
    static const std::map<std::string, std::vector<std::pair<size_t, size_t>>> m = {
        // the bit-field unit after agc_db_step: bits 12-31 unused
        {"kiv_virt_mode_cfg", {{AT(kiv_virt_mode_cfg, agc_db_step) + 32 + 12, 20}}},
        // the unit of bits .. bayer: bits 14 and 15 unused
        {"kiv_vsrc_cfg", {{AT(kiv_vsrc_cfg, hdr_mode) + 32 + 14, 2}}},
        {"kiv_calib_data_item", {{AT(kiv_calib_data_item, reserved), 32}}},
        {"kiv_pass_cfg", {{AT(kiv_pass_cfg, reserved), 16}}},
        {"kiv_src_buf_cfg", {{AT(kiv_src_buf_cfg, reserved), 32}}},
        {"kiv_pyramid_cfg",
         {{AT(kiv_pyramid_cfg, input_buf_id) + 32 + 18, 14}, // unnamed 14 bits
          {AT(kiv_pyramid_cfg, scale_type) + 32, 32},        // padding before buf_addr
          {AT(kiv_pyramid_cfg, item_num) + 19, 5},           // unnamed 5 bits
          {AT(kiv_pyramid_cfg, frame_rate_hp) + 32, 32}}},   // tail padding
        {"kiv_channel_cfg",
         {{AT(kiv_channel_cfg, vsrc_ctx) + 18, 6},                    // unit B bits 18-23
          {AT(kiv_channel_cfg, vsrc_ctx_pattern_addr_offset) - 1, 1}, // unit F bit 15
          {sizeof(kiv_channel_cfg) * U - 32, 32}}},                   // tail padding
        {"kiv_canvas_cfg",
         {{AT(kiv_canvas_cfg, extra_dram_buf) + 64 + 10, 22},    // second word bits 10-31
          {AT(kiv_canvas_cfg, source_chan_ids) + 96 + 15, 17}}}, // third word bits 15-31
        {"kiv_stream_cfg",
         {{19, 13},                                              // first word bits 19-31
          {AT(kiv_stream_cfg, possible_enc_src_map) + 16, 16}}}, // tail padding
        {"kiv_chan_mem_cfg", {{30, 2}}},
        {"kiv_stream_mem_cfg", {{8, 24}}},
        {"kiv_mem_cfg_resource", {{10, 22}}},
        {"kiv_multi_chan_cfg",
         {{AT(kiv_multi_chan_cfg, stream_num) + 8 + 2, 30}, // flag word bits 2-31
          {sizeof(kiv_multi_chan_cfg) * U - 32, 32}}},      // tail padding
        {"kiv_nn_map", {{AT(kiv_nn_map, reserved), 8}}},
        {"kiv_aisp_cfg", {{AT(kiv_aisp_cfg, dag_addr) + 32 + 4, 28}}},
    };
#undef AT
    return m;
}

} // namespace

TEST(Records, DescriptionCoversEveryBit)
{
    for (const record_desc *d : all_record_descs()) {
        SCOPED_TRACE(d->name);
        auto runs = clear_runs(*d);
        auto it = not_described().find(d->name);
        std::vector<std::pair<size_t, size_t>> want;
        if (it != not_described().end())
            want = it->second;
        EXPECT_EQ(runs, want);
    }
}
