-- Streams: entries placed by their ids, keys gated by their switches, values
-- cut to their fields, the failures and what they keep, the dump of the
-- thirteen a record holds.
-- include: config
local function with(t)
  return config { streams = t }
end
--- gated keys, values cut to their fields, ids in any order | only=stream_num,streams[1].max_M,streams[2].
with { { id = 2, max_size = {1920, 1080, 7}, used_for_vout_enable = 1, efm_enable = 0,
  efm_buf_num = 5, dis_enable = 3, dis_cached_items = 200 }, { id = 1, max_size = {1, 2}, max_M = 300 } }
--- no streams | level=0 only=stream_num,streams[
with "none"
--- an empty list | level=0 only=stream_num,streams[
with {}
--- fourteen streams | level=0 only=stream_num,streams[
local s = {}
for i = 1, 14 do s[i] = { id = 0, max_size = {1, 1} } end
with(s)
--- no id: the entry before stays | level=0 only=stream_num,streams[
with { { id = 3, max_size = {5, 6} }, { max_size = {1, 2} } }
--- an entry no table | level=0 only=stream_num,streams[
with { { id = 3, max_size = {5, 6} }, 7 }
--- id 13 | level=0 only=stream_num,streams[
with { { id = 3, max_size = {5, 6} }, { id = 13 } }
--- id -1 | level=0 only=stream_num,streams[
with { { id = 3, max_size = {5, 6} }, { id = -1 } }
--- max_size short: the id stays | level=0 only=stream_num,streams[
with { { id = 3, max_size = {5, 6} }, { id = 4, max_size = {1} } }
--- efm without efm_buf_num: what was read before stays | level=0 only=stream_num,streams[
with { { id = 3, max_size = {5, 6} }, { id = 4, max_size = {1, 2}, efm_enable = 1 } }
--- efm_size short | level=0 only=stream_num,streams[
with { { id = 3, max_size = {5, 6} },
  { id = 4, max_size = {1, 2}, efm_enable = 1, efm_buf_num = 7, efm_size = {3} } }
--- thirteen streams, the first with every key: each written, none dropped | level=0 dump only=stream_num
local s = { { id = 0, max_size = {3840, 2160}, max_M = 3, fast_seek_enable = 1, two_ref_enable = 1,
  max_svct_layers_minus_1 = 2, max_num_minus_1_ltrs = 1, possible_enc_src_map = 0x8001,
  codec_enable = 5, js_enable = 1, used_for_vout_enable = 1, used_for_vout_id = 2,
  efm_enable = 1, efm_buf_num = 15, efm_size = {720, 480}, efm_skip_waiting = 1,
  efm_extern_src_enable = 1, efm_extern_src_stream = 11, stream_mv_statis_enable = 1,
  stream_pic_statis_enable = 1, dis_enable = 1, dis_cached_items = 72 } }
for i = 1, 12 do s[i + 1] = { id = i, max_size = {16 * i, 8 * i}, possible_enc_src_map = 1 } end
with(s)
