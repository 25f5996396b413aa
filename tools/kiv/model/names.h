// Names and values as a script author reads them: the nearest of a set of
// names to a misspelt one, and a Lua value written short.
#ifndef KIV_TOOL_MODEL_NAMES_H
#define KIV_TOOL_MODEL_NAMES_H

#include <string>
#include <string_view>
#include <vector>

#include <lua.h>

namespace kivtool
{

// The edit distance between two names (insertions, deletions,
// substitutions and swaps of neighbours each count 1).
size_t name_distance(std::string_view a, std::string_view b);

// The name of `names` nearest to `word` when it is near enough to be what
// was meant (a third of its length, at least 1, the same letters in another
// case, or one beginning the other); "" when none is.
std::string nearest_name(std::string_view word, const std::vector<std::string> &names);

// "; did you mean `NAME`?" for the nearest name, or "".
std::string did_you_mean(std::string_view word, const std::vector<std::string> &names,
                         const char *quote = "`");

// Whether a value's text is written out in the script (a number, a string,
// a table constructor, true, false or nil) rather than taken from a
// variable, a call or an operation.
bool literal(std::string_view v);
// The same for a table constructor only when it holds literals alone
// (`{0, 0, 1920, 1080}`, not `{x, y, w, h}`).
bool written_out(std::string_view v);

// The value at idx as a script author would write it, short: "30", "\"4K\"",
// "true", "a table".
std::string describe_value(lua_State *L, int idx);

} // namespace kivtool

#endif
