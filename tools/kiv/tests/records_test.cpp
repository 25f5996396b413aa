// The layout of every record the C interface carries, and its description:
// applications built against the header rely on each bit staying where it
// is, and the tool reads and writes records through the description alone.
// Each member is placed by setting it through its setter on a clear record;
// the places, and the bits no member owns (reserved members, unnamed
// bit-fields, padding), must be what tests/cases/record_layout.txt says.  A
// member added to a record and not to its description shows there as a new
// gap; two members that own the same bit, or a getter that does not read
// back its setter, fail here.
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

// "UNIT.BIT": the byte offset of the 32-bit unit holding bit i, and i there.
std::string unit_bit(size_t i)
{
    return std::to_string(i / 32 * 4) + "." + std::to_string(i % 32);
}

// Marks the bits member `f` (of the record at byte `at`) owns in `covered`
// and returns where it lies: an integer as "UNIT.BIT WIDTH" (what its setter
// writes on a clear record), a text or a sub-record at "@BYTE" (its bytes; a
// sub-record type is checked on its own), an array as "[COUNT] stride BYTES"
// and its first element's place (all its elements marked).
std::string cover(const field &f, size_t at, bits &covered, const std::string &name)
{
    if (f.k == kind::array) {
        std::string first;
        for (size_t i = f.count; i-- > 0;)
            first = cover(*f.elem, at + f.offset + i * f.size, covered,
                          name + "[" + std::to_string(i) + "]");
        return "[" + std::to_string(f.count) + "] stride " + std::to_string(f.size) + " " + first;
    }
    bits rec(covered.size(), 0);
    if (f.k == kind::integer) {
        f.set(rec.data() + at, -1);
        EXPECT_NE(f.get(rec.data() + at), 0) << name << ": the getter reads another place";
    } else {
        memset(rec.data() + at + f.offset, 0xff, f.k == kind::text ? f.size : f.rec->size);
    }
    size_t first = SIZE_MAX, last = 0, n = 0;
    for (size_t i = 0; i < rec.size() * 8; ++i)
        if (bit(rec, i)) {
            EXPECT_FALSE(bit(covered, i)) << name << " overlaps an earlier member at bit " << i;
            covered[i / 8] |= static_cast<unsigned char>(1u << (i % 8));
            first = std::min(first, i);
            last = i;
            ++n;
        }
    std::string place = "@" + std::to_string(at + f.offset);
    if (f.k == kind::integer) {
        f.set(rec.data() + at, 0);
        EXPECT_EQ(f.get(rec.data() + at), 0) << name;
        return last - first + 1 != n ? "not contiguous" : unit_bit(first) + " " + std::to_string(n);
    }
    return f.k == kind::text ? place + " text " + std::to_string(f.size)
                             : place + " " + f.rec->name;
}

} // namespace

TEST(Records, LayoutAndDescriptionAsTheLayoutFileSays)
{
    std::string got = "# Each record of the C interface and its members: an integer as\n"
                      "# UNIT.BIT WIDTH (byte offset of its 32-bit unit, first bit, bits), any\n"
                      "# other member at @BYTE; arrays as [COUNT] stride BYTES.  Then the bits\n"
                      "# no member owns, as UNIT.BIT+COUNT.\n";
    for (const record_desc *d : all_record_descs()) {
        SCOPED_TRACE(d->name);
        got += std::string(d->name) + ": " + std::to_string(d->size) + " bytes\n";
        bits covered(d->size, 0);
        for (const field &m : d->members)
            got += "  " + std::string(m.name) + " " + cover(m, 0, covered, m.name) + "\n";
        std::string gaps;
        for (size_t i = 0, n; i < d->size * 8; i += n) {
            for (n = 0; i + n < d->size * 8 && bit(covered, i + n) == bit(covered, i);)
                ++n;
            if (!bit(covered, i))
                gaps += " " + unit_bit(i) + "+" + std::to_string(n);
        }
        got += gaps.empty() ? "" : "  no member:" + gaps + "\n";
    }
    std::string file = std::string(KIV_SOURCE_DIR) + "/tests/cases/record_layout.txt";
    if (getenv("KIV_REGENERATE"))
        std::ofstream(file) << got;
    std::ifstream in(file);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), got)
        << "KIV_REGENERATE=1 rewrites " << file;
}
