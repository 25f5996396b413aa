// The log, the process-wide settings and the Lua access layer.
#include "kiv_test.h"

#include <memory>
#include <string>

#include "core/access.h"
#include "core/log.h"

using namespace kivtest;

namespace
{

using Log = Settings;

class Access : public Settings
{
  protected:
    // The table every test reads, on top of the stack (log level 3).
    void SetUp() override
    {
        Settings::SetUp();
        kiv_set_log_level(3);
        script_ = std::make_unique<lua_script>(
            "string_of_40 = '" + std::string(40, 'a') + "'\n" + TABLE, "t");
        L = script_->L();
    }
    void TearDown() override
    {
        EXPECT_EQ(lua_gettop(L), script_->top());
        Settings::TearDown();
    }
    static constexpr const char *TABLE = R"(
t = { size = {1920, 1080}, off = false, zero = 0, holes = {5, nil, 7}, empty = {},
      whole_float = 30.0, fraction = 29.97, text_num = "12", wide = 4294967297, neg = -1,
      name = "main", num_as_text = 5, float_as_text = 5.0, embedded = "ab\0cd",
      long = string_of_40, tbl = {}, num = 5, str = "x", yes = true, names = {"chan_0", {}, 7} }
)";
    std::unique_ptr<lua_script> script_;
    lua_State *L = nullptr;
};

// The DEBUG lines of a lookup that finds nothing.
std::string no_str(const std::string &key)
{
    return "KIV_DEBUG:: kiv_is_item_exist_str(N): item(" + key + ") doesn't exist\n";
}
std::string no_int(int i)
{
    return "KIV_DEBUG:: kiv_is_item_exist_int(N): item of index(" + std::to_string(i) +
           ") doesn't exist\n";
}

} // namespace

TEST_F(Log, LevelsTruncationAndSettings)
{
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
    EXPECT_EQ(capture([&] { kiv_log(0, "%s\n", long_text.c_str()); }), std::string(255, 'x'));
    kiv_set_hp_fps(0x101);
    EXPECT_EQ(kiv_get_hp_fps(), 1);
}

TEST_F(Access, ExistenceAndIntegers)
{
    int32_t v = 1234;
    EXPECT_EQ(masked([&] {
                  EXPECT_EQ(kiv_is_item_exist_str(L, "off"), 1);
                  EXPECT_EQ(kiv_is_item_exist_str(L, "zero"), 1);
                  EXPECT_EQ(kiv_is_item_exist_str(L, "nothing"), 0);
                  EXPECT_EQ(kiv_is_item_exist_int(L, 0), 0);
                  EXPECT_EQ(kiv_get_integer_item_str(L, "nothing", &v), -2);
              }),
              no_str("nothing") + no_int(0) + no_str("nothing"));
    EXPECT_EQ(v, 1234); // a missing item leaves the target alone
    const std::pair<const char *, int32_t> cases[] = {
        {"whole_float", 30}, {"fraction", 0}, {"text_num", 12}, {"wide", 1},
        {"neg", -1},         {"off", 0},      {"tbl", 0},       {"name", 0}};
    for (const auto &[key, want] : cases) {
        v = 1234;
        EXPECT_EQ(kiv_get_integer_item_str(L, key, &v), 0) << key;
        EXPECT_EQ(v, want) << key;
    }
}

TEST_F(Access, StringCopiesAreBounded)
{
    char buf[32];
    const std::pair<const char *, const char *> cases[] = {
        {"name", "main"}, {"num_as_text", "5"}, {"float_as_text", "5.0"}, {"embedded", "ab"}};
    for (const auto &[key, want] : cases) {
        EXPECT_EQ(kiv_get_string_item_str(L, key, buf, sizeof buf), 0);
        EXPECT_STREQ(buf, want);
    }
    char small[8];
    memset(small, '#', sizeof small);
    EXPECT_EQ(kiv_get_string_item_str(L, "long", small, sizeof small - 1), 0);
    EXPECT_EQ(std::string(small), "aaaaaa");
    EXPECT_EQ(small[7], '#'); // nothing written past the given capacity

    // Values without a string form are handled like missing items.
    strcpy(buf, "keep");
    EXPECT_EQ(masked([&] {
                  EXPECT_EQ(kiv_get_string_item_str(L, "yes", buf, sizeof buf), -2);
                  EXPECT_EQ(kiv_get_string_item_str(L, "tbl", buf, sizeof buf), -2);
              }),
              no_str("yes") + no_str("tbl"));
    EXPECT_STREQ(buf, "keep");
}

TEST_F(Access, CountingAndArrayElements)
{
    // Counting stops at the first hole; missing arrays and values that are
    // not tables count 0.
    const std::pair<const char *, int> counts[] = {{"size", 2}, {"holes", 1}, {"empty", 0}};
    for (const auto &[key, n] : counts)
        EXPECT_EQ(masked([&] { EXPECT_EQ(kiv_get_array_item_num_str(L, key), n); }), no_int(n));
    for (const char *key : {"nothing", "num", "str", "yes"})
        EXPECT_EQ(masked([&] { EXPECT_EQ(kiv_get_array_item_num_str(L, key), 0); }),
                  no_str(key) + no_array(key));

    int32_t v = 0;
    char buf[32];
    EXPECT_EQ(kiv_get_array_integer_item_str(L, "size", 1, &v), 0);
    EXPECT_EQ(v, 1080);
    EXPECT_EQ(kiv_get_array_string_item_str(L, "names", 0, buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "chan_0");
    const std::string i = "kiv_get_array_integer_item_str", s = "kiv_get_array_string_item_str";
    EXPECT_EQ(masked([&] {
                  EXPECT_EQ(kiv_get_array_integer_item_str(L, "size", 2, &v), -2);
                  EXPECT_EQ(kiv_get_array_integer_item_str(L, "nothing", 0, &v), -1);
                  EXPECT_EQ(kiv_get_array_string_item_str(L, "nothing", 0, buf, sizeof buf), -2);
                  EXPECT_EQ(kiv_get_array_string_item_str(L, "names", 1, buf, sizeof buf), -2);
                  EXPECT_EQ(kiv_get_array_integer_item_str(L, "num", 0, &v), -1);
              }),
              no_int(2) + err(i, "array item(size) doesn't have item of index(2)\n") +
                  no_str("nothing") + err(i, "array item(nothing) doesn't exist\n") +
                  no_str("nothing") + err(s, "array item(nothing) doesn't exist\n") + no_int(1) +
                  err(s, "array item(names) doesn't have item of index(1)\n") + no_str("num") +
                  err(i, "array item(num) doesn't exist\n"));
    EXPECT_EQ(v, 1080);
}

TEST_F(Access, EnteringOnlyTables)
{
    EXPECT_EQ(kiv_enter_str(L, "size"), 1);
    capture([&] { EXPECT_EQ(kiv_get_array_item_num(L), 2); });
    int32_t v = 0;
    EXPECT_EQ(kiv_get_integer_item_int(L, 1, &v), 0);
    EXPECT_EQ(v, 1080);
    kiv_leave(L);
    EXPECT_EQ(masked([&] {
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
              }),
              no_str("num") + no_str("str") + no_str("nothing") + no_int(2) + no_str("x"));

    // With a value that is not a table on top, every lookup finds nothing.
    lua_pushinteger(L, 5);
    capture([&] {
        EXPECT_EQ(kiv_is_item_exist_str(L, "size"), 0);
        EXPECT_EQ(kiv_get_array_item_num(L), 0);
    });
    lua_pop(L, 1);
}
