// The log, the process-wide settings and the Lua access layer.
#include "kiv_test.h"

#include <string>

#include "core/access.h"
#include "core/log.h"

using namespace kivtest;

namespace
{

class Access : public Settings
{
};

const char *const TABLE = R"(
t = {
    size = {1920, 1080},
    off = false, zero = 0,
    holes = {5, nil, 7},
    empty = {},
    whole_float = 30.0, fraction = 29.97, text_num = "12", wide = 4294967297,
    neg = -1, name = "main", num_as_text = 5, float_as_text = 5.0,
    embedded = "ab\0cd", long = string_of_40,
    tbl = {}, num = 5, str = "x", yes = true,
    names = {"chan_0", {}, 7},
}
)";

std::string table_script()
{
    return std::string("string_of_40 = '") + std::string(40, 'a') + "'\n" + TABLE;
}

} // namespace

TEST_F(Access, LogLevelsAndTruncation)
{
    EXPECT_EQ(kiv_get_log_level(), 1);
    EXPECT_EQ(capture([] { KIV_DBG("f", "hidden\n"); }), "");
    EXPECT_EQ(masked([] {
                  KIV_ERR("f", "e\n");
                  KIV_WARN("g", "w %d\n", 7);
              }),
              "KIV_ERROR:: f(N): e\nKIV_WARN:: g(N): w 7\n");

    kiv_set_log_level(-1); // low 8 bits: 255 prints everything
    EXPECT_EQ(kiv_get_log_level(), 255);
    EXPECT_EQ(masked([] { KIV_DBG("f", "shown\n"); }), "KIV_DEBUG:: f(N): shown\n");

    kiv_set_log_level(0);
    EXPECT_EQ(capture([] { KIV_WARN("f", "hidden\n"); }), "");

    // A message longer than 255 characters is cut there and loses its line feed.
    kiv_set_log_level(1);
    std::string long_text(300, 'x');
    std::string out = capture([&] { kiv_log(0, "%s\n", long_text.c_str()); });
    EXPECT_EQ(out, std::string(255, 'x'));

    kiv_set_hp_fps(0x101);
    EXPECT_EQ(kiv_get_hp_fps(), 1);
}

TEST_F(Access, ExistenceChecks)
{
    kiv_set_log_level(3);
    lua_script s(table_script(), "t");
    lua_State *L = s.L();
    std::string log = masked([&] {
        EXPECT_EQ(kiv_is_item_exist_str(L, "off"), 1);
        EXPECT_EQ(kiv_is_item_exist_str(L, "zero"), 1);
        EXPECT_EQ(kiv_is_item_exist_str(L, "nothing"), 0);
        EXPECT_EQ(kiv_is_item_exist_int(L, 0), 0);
    });
    EXPECT_EQ(log, "KIV_DEBUG:: kiv_is_item_exist_str(N): item(nothing) doesn't exist\n"
                   "KIV_DEBUG:: kiv_is_item_exist_int(N): item of index(0) doesn't exist\n");
    EXPECT_EQ(lua_gettop(L), s.top());
}

TEST_F(Access, IntegerConversions)
{
    lua_script s(table_script(), "t");
    lua_State *L = s.L();
    struct {
        const char *key;
        int32_t want;
    } cases[] = {{"whole_float", 30}, {"fraction", 0}, {"text_num", 12}, {"wide", 1},
                 {"neg", -1},         {"off", 0},      {"tbl", 0},       {"name", 0}};
    for (const auto &c : cases) {
        int32_t v = 1234;
        EXPECT_EQ(kiv_get_integer_item_str(L, c.key, &v), 0) << c.key;
        EXPECT_EQ(v, c.want) << c.key;
    }
    int32_t v = 1234;
    EXPECT_EQ(kiv_get_integer_item_str(L, "nothing", &v), -2);
    EXPECT_EQ(v, 1234); // a missing item leaves the target alone
    EXPECT_EQ(lua_gettop(L), s.top());
}

TEST_F(Access, StringCopiesAreBounded)
{
    lua_script s(table_script(), "t");
    lua_State *L = s.L();
    char buf[32];
    EXPECT_EQ(kiv_get_string_item_str(L, "name", buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "main");
    EXPECT_EQ(kiv_get_string_item_str(L, "num_as_text", buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "5");
    EXPECT_EQ(kiv_get_string_item_str(L, "float_as_text", buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "5.0");
    EXPECT_EQ(kiv_get_string_item_str(L, "embedded", buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "ab");

    char small[8];
    memset(small, '#', sizeof small);
    char guard = '#';
    EXPECT_EQ(kiv_get_string_item_str(L, "long", small, sizeof small - 1), 0);
    EXPECT_EQ(std::string(small), "aaaaaa");
    EXPECT_EQ(small[7], guard); // nothing written past the given capacity

    // Values without a string form are handled like missing items.
    kiv_set_log_level(3);
    strcpy(buf, "keep");
    std::string log = masked([&] {
        EXPECT_EQ(kiv_get_string_item_str(L, "yes", buf, sizeof buf), -2);
        EXPECT_EQ(kiv_get_string_item_str(L, "tbl", buf, sizeof buf), -2);
    });
    EXPECT_STREQ(buf, "keep");
    EXPECT_EQ(log, "KIV_DEBUG:: kiv_is_item_exist_str(N): item(yes) doesn't exist\n"
                   "KIV_DEBUG:: kiv_is_item_exist_str(N): item(tbl) doesn't exist\n");
    EXPECT_EQ(lua_gettop(L), s.top());
}

TEST_F(Access, Counting)
{
    kiv_set_log_level(3);
    lua_script s(table_script(), "t");
    lua_State *L = s.L();
    std::string log = masked([&] {
        EXPECT_EQ(kiv_get_array_item_num_str(L, "size"), 2);
        EXPECT_EQ(kiv_get_array_item_num_str(L, "holes"), 1);
        EXPECT_EQ(kiv_get_array_item_num_str(L, "empty"), 0);
    });
    EXPECT_EQ(log, "KIV_DEBUG:: kiv_is_item_exist_int(N): item of index(2) doesn't exist\n"
                   "KIV_DEBUG:: kiv_is_item_exist_int(N): item of index(1) doesn't exist\n"
                   "KIV_DEBUG:: kiv_is_item_exist_int(N): item of index(0) doesn't exist\n");

    // Missing arrays and values that are not tables count 0 with the same lines.
    for (const char *key : {"nothing", "num", "str", "yes"}) {
        log = masked([&] { EXPECT_EQ(kiv_get_array_item_num_str(L, key), 0); });
        EXPECT_EQ(log, std::string("KIV_DEBUG:: kiv_is_item_exist_str(N): item(") + key +
                           ") doesn't exist\nKIV_WARN:: kiv_get_array_item_num_str(N): array "
                           "item(" +
                           key + ") doesn't exist\n");
    }
    EXPECT_EQ(lua_gettop(L), s.top());
}

TEST_F(Access, ArrayElements)
{
    kiv_set_log_level(3);
    lua_script s(table_script(), "t");
    lua_State *L = s.L();
    int32_t v = 0;
    char buf[32];
    EXPECT_EQ(kiv_get_array_integer_item_str(L, "size", 0, &v), 0);
    EXPECT_EQ(v, 1920);
    EXPECT_EQ(kiv_get_array_integer_item_str(L, "size", 1, &v), 0);
    EXPECT_EQ(v, 1080);
    EXPECT_EQ(kiv_get_array_string_item_str(L, "names", 0, buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "chan_0");

    std::string log = masked([&] {
        EXPECT_EQ(kiv_get_array_integer_item_str(L, "size", 2, &v), -2);
        EXPECT_EQ(kiv_get_array_integer_item_str(L, "nothing", 0, &v), -1);
        EXPECT_EQ(kiv_get_array_string_item_str(L, "nothing", 0, buf, sizeof buf), -2);
        EXPECT_EQ(kiv_get_array_string_item_str(L, "names", 1, buf, sizeof buf), -2);
        EXPECT_EQ(kiv_get_array_integer_item_str(L, "num", 0, &v), -1);
    });
    EXPECT_EQ(
        log, "KIV_DEBUG:: kiv_is_item_exist_int(N): item of index(2) doesn't exist\n"
             "KIV_ERROR:: kiv_get_array_integer_item_str(N): array item(size) doesn't have item of "
             "index(2)\n"
             "KIV_DEBUG:: kiv_is_item_exist_str(N): item(nothing) doesn't exist\n"
             "KIV_ERROR:: kiv_get_array_integer_item_str(N): array item(nothing) doesn't exist\n"
             "KIV_DEBUG:: kiv_is_item_exist_str(N): item(nothing) doesn't exist\n"
             "KIV_ERROR:: kiv_get_array_string_item_str(N): array item(nothing) doesn't exist\n"
             "KIV_DEBUG:: kiv_is_item_exist_int(N): item of index(1) doesn't exist\n"
             "KIV_ERROR:: kiv_get_array_string_item_str(N): array item(names) doesn't have item of "
             "index(1)\n"
             "KIV_DEBUG:: kiv_is_item_exist_str(N): item(num) doesn't exist\n"
             "KIV_ERROR:: kiv_get_array_integer_item_str(N): array item(num) doesn't exist\n");
    EXPECT_EQ(v, 1080);
    EXPECT_EQ(lua_gettop(L), s.top());
}

TEST_F(Access, EnteringOnlyTables)
{
    kiv_set_log_level(3);
    lua_script s(table_script(), "t");
    lua_State *L = s.L();
    EXPECT_EQ(kiv_enter_str(L, "size"), 1);
    capture([&] { EXPECT_EQ(kiv_get_array_item_num(L), 2); });
    int32_t v = 0;
    EXPECT_EQ(kiv_get_integer_item_int(L, 1, &v), 0);
    EXPECT_EQ(v, 1080);
    kiv_leave(L);
    EXPECT_EQ(lua_gettop(L), s.top());

    std::string log = masked([&] {
        EXPECT_EQ(kiv_enter_str(L, "num"), 0);
        EXPECT_EQ(kiv_enter_str(L, "str"), 0);
        EXPECT_EQ(kiv_enter_str(L, "nothing"), 0);
        EXPECT_EQ(kiv_enter_str(L, "names"), 1);
        EXPECT_EQ(kiv_enter_int(L, 2), 0); // the number 7
        EXPECT_EQ(kiv_enter_int(L, 1), 1);
        // Reading inside an entered table that is empty.
        EXPECT_EQ(kiv_get_integer_item_str(L, "x", &v), -2);
        kiv_leave(L);
        kiv_leave(L);
    });
    EXPECT_EQ(log, "KIV_DEBUG:: kiv_is_item_exist_str(N): item(num) doesn't exist\n"
                   "KIV_DEBUG:: kiv_is_item_exist_str(N): item(str) doesn't exist\n"
                   "KIV_DEBUG:: kiv_is_item_exist_str(N): item(nothing) doesn't exist\n"
                   "KIV_DEBUG:: kiv_is_item_exist_int(N): item of index(2) doesn't exist\n"
                   "KIV_DEBUG:: kiv_is_item_exist_str(N): item(x) doesn't exist\n");
    EXPECT_EQ(lua_gettop(L), s.top());

    // With a value that is not a table on top, every lookup finds nothing.
    lua_pushinteger(L, 5);
    capture([&] {
        EXPECT_EQ(kiv_is_item_exist_str(L, "size"), 0);
        EXPECT_EQ(kiv_get_array_item_num(L), 0);
    });
    lua_pop(L, 1);
}
