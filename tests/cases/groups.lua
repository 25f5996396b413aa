-- Channel groups: each listed channel carries its group and its position in
-- it; a failure keeps what was written before.  chan_2, when there is one,
-- gives a group of its own that a list naming it replaces.
-- include: config
local function groups(chans, list)
  local c = { chan { id = 0 }, chan { id = 1 } }
  if chans == 1 then
    c[2] = nil
  elseif chans == 3 then
    c[3] = chan { id = 2, enable_group = 1, group_idx = 3, group_order_idx = 6 }
  end
  return config { channels = c, chan_groups = list }
end
--- no list: a WARN | level=1 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(1, "none")
--- an empty list | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, {})
--- an empty group, then two channels in their order | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { {}, { "chan_1", "chan_0" } })
--- an entry no table is skipped; a channel listed twice takes its last place | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(2, { 5, { "chan_0", "chan_1", "chan_0" } })
--- more groups than channels | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(2, { { "chan_0" }, {}, {} })
--- a channel beyond the last: the one before stays | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_0", "chan_3" } })
--- a channel not loaded | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(2, { { "chan_2" } })
--- a name in the wrong case | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "CHAN_0", "chan_0" } })
--- a long name is cut in the message | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_0xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx" } })
--- a member no string | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_0", {} } })
--- a member no string in a later group | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_0" }, { "chan_1", true } })
--- a channel in two groups | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_0" }, { "chan_0", "chan_1" } })
--- a channel in two groups, the second later | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_2" }, { "chan_0" }, { "chan_1", "chan_2" } })
--- a channel twice in the later groups | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_0" }, { "chan_1" }, { "chan_1" } })
--- the dump lists an empty group, then the members by their order, ties by channel | level=0 dump only=channels[0].group,channels[1].group,channels[2].group
local function member(id, order)
  return chan { id = id, enable_group = 1, group_idx = 1, group_order_idx = order }
end
config { channels = { member(0, 5), member(1, 2), member(2, 2) } }
