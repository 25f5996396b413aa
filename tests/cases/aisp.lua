-- Custom AISP networks: every failure with its lines, how the interfaces of
-- the networks share the 32 entries, and the low bits values keep.
-- `config(t)` puts a boot_param next to the items of t; `nn(n, c)` is network
-- n (from 0) of c interfaces, interface k (from 1) with dvi_id 10 n + k and
-- id n; `one(port, poke)` the networks of a single interface.
local function config(t)
  t.boot_param = t.boot_param or { fifo_addr = 0x1000, fifo_len = 0x200, dag_addr = 0x3000 }
  _custom_aisp_config_ = t
end
local function nn(n, c)
  local t = {}
  for k = 1, c do
    local m = { dvi_id = 10 * n + k, start = k, cnt = 1, id = { n } }
    t[k] = { port = m, poke = m }
  end
  return { if_cnt = c, interfaces = t }
end
local function networks(counts)
  local t = {}
  for i = 1, #counts do t[i] = nn(i - 1, counts[i]) end
  config({ custom_nn = t })
end
local GOOD = { dvi_id = 1, start = 2, cnt = 3, id = { 4 } }
local function one(port, poke)
  config({ custom_nn = { { if_cnt = 1, interfaces = { { port = port, poke = poke } } } } })
end
--- no table | aisp=1
x = 1
--- not a table | aisp=1
_custom_aisp_config_ = 3
--- boot_param not a table | aisp=1
_custom_aisp_config_ = { boot_param = 5 }
--- boot_param without fifo_len | aisp=1
_custom_aisp_config_ = { boot_param = { fifo_addr = 7, dag_addr = 9 } }
--- no custom_nn | aisp=1
config({ x = 1 })
--- no networks | aisp=1
config({ custom_nn = {} })
--- a network that is not a table | aisp=1
config({ custom_nn = { 5 } })
--- no if_cnt | aisp=1
config({ custom_nn = { { interfaces = {} } } })
--- interfaces not a table | aisp=1
config({ custom_nn = { { if_cnt = 1, interfaces = 4 } } })
--- no interfaces | aisp=1
config({ custom_nn = { { if_cnt = 1, interfaces = {} } } })
--- port not a table | aisp=1
one('x', GOOD)
--- no poke | aisp=1
one(GOOD, nil)
--- no cnt | aisp=1
one({ dvi_id = 1, start = 2, id = { 1 } }, GOOD)
--- no ids | aisp=1
one({ dvi_id = 1, start = 2, cnt = 3, id = {} }, GOOD)
--- five ids | aisp=1
one(GOOD, { dvi_id = 1, start = 2, cnt = 3, id = { 1, 2, 3, 4, 5 } })
--- ids not a table | aisp=1
one(GOOD, { dvi_id = 1, start = 2, cnt = 3, id = 7 })
--- the third network does not fit the 32 entries; the first two stay filled | aisp=1 only=interfaces[29],interfaces[30]
networks({15, 15, 3})
--- another type is refused without a line | aisp=2
networks({1})
--- entries across networks; ids beyond those given stay | aisp=1
networks({2, 3})
--- exactly full | aisp=1 only=fifo,dag,if_cnt,interfaces[31]
networks({15, 15, 2})
--- a thousand networks without interfaces | aisp=1
config({ custom_nn = {} })
for i = 1, 1000 do _custom_aisp_config_.custom_nn[i] = { if_cnt = 0, interfaces = {} } end
--- values keep the low bits their fields hold | aisp=1
one({ dvi_id = 300, start = -1, cnt = '7', id = { 1, 2, 3, 260 } }, GOOD)
_custom_aisp_config_.custom_nn[1].if_cnt = 17
--- the tool shows the entries each network filled | json=/interface_entries,/networks kiv aisp --json {}
networks({2, 3})
--- exactly full | json=/interface_entries,/networks kiv aisp --json {}
networks({15, 15, 2})
--- a thousand networks without interfaces | json=/interface_entries,/networks/999,/networks/1000 kiv aisp --json {}
config({ custom_nn = {} })
for i = 1, 1000 do _custom_aisp_config_.custom_nn[i] = { if_cnt = 0, interfaces = {} } end
--- the log at level 0: errors only | aisp=1 level=0
config({ x = 1 })
--- at level 3: debugging lines too | aisp=1 level=3
config({ x = 1 })
--- a level counts by its low 8 bits: -1 is 255, which shows everything | aisp=1 level=-1
config({ x = 1 })
