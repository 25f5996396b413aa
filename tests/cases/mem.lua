-- The resource memory layout: its counts, its entries and what a failure
-- keeps.  The layout's dump is part of the three-channel case.
-- include: config
local function chan_mem()
  return { mask_possible = 1, mc_mask_possible = 0, warp_possible = 1, mask_buf_max_num = 64,
    mc_mask_buf_max_num = 5, mc_mask_buf_ds = 2, warp_buf_max_num = 6, warp_area_max_num = 7,
    max_vin = {1920, 1080} }
end
local function stream_mem()
  return { qpm_possible = 1, qpm_max_matrix_num = 9, qpm_buf_max_num = 17, max_stream = {640, 480} }
end
local function layout(chans, streams, chan_list, stream_list)
  return config { mem = { max_chan_num = chans, max_stream_num = streams, channels_mem = chan_list,
    streams_mem = stream_list } }
end
--- entries read, values cut to their fields | level=0 only=resource_mem_layout
layout(2, 1, { chan_mem(), { max_vin = {1, 2, 3} } }, { stream_mem() })
--- no layout | level=0 only=resource_mem_layout
config {}
--- a layout that is no table | level=0 only=resource_mem_layout
config { mem = 5 }
--- no max_chan_num | level=0 only=resource_mem_layout
config { mem = {} }
--- max_chan_num 0 | level=0 only=resource_mem_layout
config { mem = { max_chan_num = 0 } }
--- max_chan_num 4 | level=0 only=resource_mem_layout
config { mem = { max_chan_num = 4 } }
--- no max_stream_num: the channel count stays | level=0 only=resource_mem_layout
config { mem = { max_chan_num = 2 } }
--- max_stream_num 14 | level=0 only=resource_mem_layout
config { mem = { max_chan_num = 2, max_stream_num = 14 } }
--- max_stream_num -1 | level=0 only=resource_mem_layout
config { mem = { max_chan_num = 2, max_stream_num = -1 } }
--- more channel entries than counted | level=0 only=resource_mem_layout
layout(2, 1, { chan_mem(), chan_mem(), chan_mem() }, { stream_mem() })
--- no channel entries | level=0 only=resource_mem_layout
config { mem = { max_chan_num = 1, max_stream_num = 0 } }
--- fewer stream entries than counted: the channel entries stay | level=0 only=resource_mem_layout
layout(1, 2, { chan_mem() }, { stream_mem() })
--- a channel entry with max_vin short | level=0 only=resource_mem_layout
layout(2, 1, { chan_mem(), { max_vin = {1} } }, { stream_mem() })
--- a channel entry no table | level=0 only=resource_mem_layout
layout(2, 0, { chan_mem(), true }, {})
--- a stream entry with max_stream empty | level=0 only=resource_mem_layout
layout(1, 2, { chan_mem() }, { stream_mem(), { max_stream = {} } })
