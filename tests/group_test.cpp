#include <cstring>

#include "core/sections.h"
#include "kiv_test.h"

using namespace kivtest;

namespace
{

// The channel parser is not involved: the record is filled by hand with the
// number of channels the groups may name.
class Groups : public Settings
{
  protected:
    kiv_multi_chan_cfg cfg;
    void SetUp() override
    {
        Settings::SetUp();
        kiv_init(&cfg);
        cfg.chan_num = 3;
    }
    load_result parse(const std::string &groups)
    {
        lua_script s("_resource_config_ = {" + groups + "}");
        load_result r{};
        r.log = masked([&] { r.ret = kiv_get_chan_grp_cfg(s.L(), &cfg); });
        EXPECT_EQ(lua_gettop(s.L()), s.top());
        return r;
    }
    std::string dumped()
    {
        return capture([&] { kiv_dump_chan_grp_cfg(&cfg, nullptr); });
    }
    // enable_group, group_idx, group_order_idx of channel c.
    std::string fields(int c) const
    {
        const kiv_channel_cfg &ch = cfg.channels[c];
        return std::to_string(ch.enable_group) + std::to_string(ch.group_idx) +
               std::to_string(ch.group_order_idx);
    }
};

TEST_F(Groups, ListedChannelsCarryTheirGroupAndPosition)
{
    cfg.channels[2].enable_group = 1;
    cfg.channels[2].group_idx = 3;
    cfg.channels[2].group_order_idx = 6;
    cfg.channels[2].group_sync = 1;
    auto r = parse("chan_groups = {{}, {'chan_1', 'chan_0'}}");
    EXPECT_EQ(r.ret, 0);
    EXPECT_EQ(r.log, "");
    EXPECT_EQ(fields(0), "111");
    EXPECT_EQ(fields(1), "110");
    // Channels not listed keep what they had.
    EXPECT_EQ(fields(2), "136");
    EXPECT_EQ(cfg.channels[2].group_sync, 1u);

    // A name given twice takes its later position; a group that is not a
    // table lists no channel.
    kiv_init(&cfg);
    cfg.chan_num = 2;
    r = parse("chan_groups = {5, {'chan_0', 'chan_1', 'chan_0'}}");
    EXPECT_EQ(r.ret, 0);
    EXPECT_EQ(fields(0), "112");
    EXPECT_EQ(fields(1), "111");
}

TEST_F(Groups, AbsentOrEmptyGroupsChangeNothing)
{
    kiv_multi_chan_cfg before = cfg;
    auto r = parse("");
    EXPECT_EQ(r.ret, 0);
    EXPECT_EQ(r.log, "KIV_WARN:: kiv_get_array_item_num_str(N): array item(chan_groups) doesn't "
                     "exist\n");
    r = parse("chan_groups = {}");
    EXPECT_EQ(r.ret, 0);
    EXPECT_EQ(r.log, "");
    EXPECT_EQ(memcmp(&before, &cfg, sizeof cfg), 0);
}

TEST_F(Groups, Failures)
{
    const std::string e = "KIV_ERROR:: kiv_get_chan_grp_cfg(N): ";
    struct {
        int chans;
        const char *groups;
        int32_t ret;
        std::string log;
        const char *chan0; // fields of channel 0 afterwards
    } cases[] = {
        {2, "{{'chan_0'}, {}, {}}", -2, e + "chan group num(3) cannot exceed chan num(2).\n",
         "000"},
        {0, "{{}}", -2, e + "chan group num(1) cannot exceed chan num(0).\n", "000"},
        {3, "{{'chan_0', 'chan_3'}}", -1, e + "item chan_3 does not exist.\n", "100"},
        {2, "{{'chan_0', 'chan_2'}}", -1, e + "item chan_2 does not exist.\n", "100"},
        {3, "{{'CHAN_0'}}", -1, e + "item CHAN_0 does not exist.\n", "000"},
        {3, "{{'chan_00'}}", -1, e + "item chan_00 does not exist.\n", "000"},
        {3, "{{' chan_0'}}", -1, e + "item  chan_0 does not exist.\n", "000"},
        {3, "{{'chan_0', {}}}", -2, e + "item of index(1) does not exist.\n", "100"},
        {3, "{{'chan_0'}, {true}}", -2, e + "item of index(0) does not exist.\n", "100"},
        {3, "{{'chan_0'}, {'chan_0', 'chan_1'}}", -1,
         e + "Can not specify the same channel to group 0[0x1] and group 1[0x3].\n", "110"},
        {3, "{{'chan_2'}, {'chan_0'}, {'chan_1', 'chan_2'}}", -1,
         e + "Can not specify the same channel to group 0[0x4] and group 2[0x6].\n", "110"},
        {3, "{{'chan_0'}, {'chan_1'}, {'chan_1'}}", -1,
         e + "Can not specify the same channel to group 1[0x2] and group 2[0x2].\n", "100"},
    };
    for (const auto &c : cases) {
        kiv_init(&cfg);
        cfg.chan_num = static_cast<uint8_t>(c.chans);
        auto r = parse(std::string("chan_groups = ") + c.groups);
        EXPECT_EQ(r.ret, c.ret) << c.groups;
        EXPECT_EQ(r.log, c.log) << c.groups;
        EXPECT_EQ(fields(0), c.chan0) << c.groups;
    }
    // A name longer than the name buffer is cut, never written past it.
    auto r = parse("chan_groups = {{'chan_0" + std::string(100, 'x') + "'}}");
    EXPECT_EQ(r.ret, -1);
    EXPECT_EQ(r.log, e + "item chan_0" + std::string(25, 'x') + " does not exist.\n");
}

TEST_F(Groups, DumpWritesEachGroupInTheOrderOfItsMembers)
{
    EXPECT_EQ(dumped(), "");
    cfg.channels[0].group_idx = 1; // not a member: enable_group is 0
    EXPECT_EQ(dumped(), "");

    auto r = parse("chan_groups = {{'chan_1', 'chan_0'}, {'chan_2'}}");
    ASSERT_EQ(r.ret, 0);
    const std::string text = dumped();
    EXPECT_EQ(text, "\tchan_groups = {\n"
                    "\t\t{\"chan_1\",\"chan_0\",},\n"
                    "\t\t{\"chan_2\",},\n"
                    "\t},\n");

    // Read back, the text gives the same group fields.
    kiv_multi_chan_cfg first = cfg;
    kiv_init(&cfg);
    cfg.chan_num = 3;
    r = parse(text.substr(1, text.size() - 3));
    ASSERT_EQ(r.ret, 0) << r.log;
    EXPECT_EQ(memcmp(cfg.channels, first.channels, sizeof cfg.channels), 0);

    // A group index without members is written empty.
    kiv_init(&cfg);
    cfg.chan_num = 2;
    r = parse("chan_groups = {{}, {'chan_1'}}");
    ASSERT_EQ(r.ret, 0);
    EXPECT_EQ(dumped(), "\tchan_groups = {\n\t\t{},\n\t\t{\"chan_1\",},\n\t},\n");

    // No chan_num: nothing to write.
    cfg.chan_num = 0;
    EXPECT_EQ(dumped(), "");
}

TEST_F(Groups, DumpOfOrderIndicesThatAreNotAPositionListWritesEachMemberOnce)
{
    // Order indices as the channels' own keys may set them: 5, 2, 2 in one
    // group.  Ascending order index, ties by channel index.
    for (int c = 0; c < 3; ++c) {
        cfg.channels[c].enable_group = 1;
        cfg.channels[c].group_idx = 2;
    }
    cfg.channels[0].group_order_idx = 5;
    cfg.channels[1].group_order_idx = 2;
    cfg.channels[2].group_order_idx = 2;
    EXPECT_EQ(dumped(), "\tchan_groups = {\n"
                        "\t\t{},\n"
                        "\t\t{},\n"
                        "\t\t{\"chan_1\",\"chan_2\",\"chan_0\",},\n"
                        "\t},\n");

    // Channels beyond chan_num (or the three the record holds) are never
    // written.
    cfg.chan_num = 200;
    cfg.channels[1].enable_group = 0;
    EXPECT_EQ(dumped(), "\tchan_groups = {\n"
                        "\t\t{},\n"
                        "\t\t{},\n"
                        "\t\t{\"chan_2\",\"chan_0\",},\n"
                        "\t},\n");
    cfg.chan_num = 1;
    EXPECT_EQ(dumped(), "\tchan_groups = {\n\t\t{},\n\t\t{},\n\t\t{\"chan_0\",},\n\t},\n");
}

} // namespace
