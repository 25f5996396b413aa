-- Custom AISP networks: where the boot FIFO and the DAG of the networks
-- live, and for each network the port and poke maps of its interfaces.

_custom_aisp_config_ = {
	boot_param = {
		fifo_addr = 0x60000000,
		fifo_len = 0x00100000,
		dag_addr = 0x60100000,
	},

	custom_nn = {
		-- denoise network: one input and one output interface
		{
			if_cnt = 2,
			interfaces = {
				{
					port = { dvi_id = 0, start = 0, cnt = 1, id = { 0 } },
					poke = { dvi_id = 1, start = 0, cnt = 1, id = { 1 } },
				},
				{
					port = { dvi_id = 2, start = 1, cnt = 2, id = { 2, 3 } },
					poke = { dvi_id = 3, start = 1, cnt = 2, id = { 4, 5 } },
				},
			},
		},
		-- tone mapping network: one interface with four ids
		{
			if_cnt = 1,
			interfaces = {
				{
					port = { dvi_id = 4, start = 0, cnt = 4, id = { 6, 7, 8, 9 } },
					poke = { dvi_id = 5, start = 0, cnt = 1, id = { 10 } },
				},
			},
		},
	},
}
