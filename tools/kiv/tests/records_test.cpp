// The record description must name every bit the library can write: each
// record type is filled through the description's setters alone, and what
// stays clear must be exactly the reserved members, the unnamed bit-fields
// and the alignment padding.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
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

// Marks the bits member `f` (of the record at byte `at`) owns in `covered`:
// an integer owns what its setter writes on a clear record, a text or a
// sub-record its bytes (a sub-record type is checked on its own), an array
// what its elements own.  Fails when two members own the same bit, or when
// a getter does not read back what its setter wrote.
void cover(const field &f, size_t at, bits &covered, const std::string &name)
{
    if (f.k == kind::array) {
        for (size_t i = 0; i < f.count; ++i)
            cover(*f.elem, at + f.offset + i * f.size, covered,
                  name + "[" + std::to_string(i) + "]");
        return;
    }
    bits rec(covered.size(), 0);
    if (f.k == kind::integer) {
        f.set(rec.data() + at, -1);
        EXPECT_NE(f.get(rec.data() + at), 0) << name << ": the getter reads another place";
    } else {
        memset(rec.data() + at + f.offset, 0xff, f.k == kind::text ? f.size : f.rec->size);
    }
    for (size_t i = 0; i < rec.size() * 8; ++i)
        if (bit(rec, i)) {
            EXPECT_FALSE(bit(covered, i)) << name << " overlaps an earlier member at bit " << i;
            covered[i / 8] |= static_cast<unsigned char>(1u << (i % 8));
        }
    if (f.k == kind::integer) {
        f.set(rec.data() + at, 0);
        EXPECT_EQ(f.get(rec.data() + at), 0) << name;
    }
}

// The clear bits of a record type as (first bit, count) runs.
std::vector<std::pair<size_t, size_t>> clear_runs(const record_desc &d)
{
    bits covered(d.size, 0);
    for (const field &m : d.members)
        cover(m, 0, covered, m.name);
    std::vector<std::pair<size_t, size_t>> runs;
    for (size_t i = 0; i < d.size * 8; ++i)
        if (bit(covered, i))
            continue;
        else if (!runs.empty() && runs.back().first + runs.back().second == i)
            ++runs.back().second;
        else
            runs.push_back({i, 1});
    return runs;
}

} // namespace

// The bits no member owns must be exactly those tests/cases/record_gaps.txt
// lists: reserved members, unnamed bit-fields and padding (the members
// around each are in record_layout.txt).  A member added to a record and
// not to its description shows there as a new gap.
TEST(Records, DescriptionCoversEveryBit)
{
    std::string got = "# The bits of each record that its description leaves out, as\n"
                      "# UNIT.BIT+COUNT (byte offset of the 32-bit unit, first bit, bits).\n";
    for (const record_desc *d : all_record_descs()) {
        SCOPED_TRACE(d->name);
        std::string runs;
        for (auto [first, n] : clear_runs(*d))
            runs += " " + std::to_string(first / 32 * 4) + "." + std::to_string(first % 32) + "+" +
                    std::to_string(n);
        got += runs.empty() ? "" : std::string(d->name) + ":" + runs + "\n";
    }
    std::string file = std::string(KIV_SOURCE_DIR) + "/tests/cases/record_gaps.txt";
    if (getenv("KIV_REGENERATE"))
        std::ofstream(file) << got;
    std::ifstream in(file);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), got)
        << "KIV_REGENERATE=1 rewrites " << file;
}
