-- Calibration data: the item count, every failure of a load, where a load
-- stops and how values become 32-bit unsigned words.
--- no table | calib=1
x = 1
--- not a table | calib=1
calib_data = 'abc'
--- a number: no table either | calib
calib_data = 5
--- empty table: nothing to count, the first item is missing | calib=1
calib_data = {}
--- an empty item | calib
calib_data = { {} }
--- an item that is not a table | calib
calib_data = { {1, 2}, 5 }
--- every key/value pair counts, named ones too | calib=1
calib_data = { {1, 2}, name = {3, 4}, 7 }
--- entries after an item's second are skipped; items after N are not read | calib=2
calib_data = { {1, 2, 3}, {4, 5}, 'x' }
--- a failing item keeps what was stored before it and stops there | calib=3
calib_data = { {6, 7}, {8} }
--- asked for more items than the script has | calib=3
calib_data = { {6, 7}, {8, 9} }
--- conversions: clamped to 0 and 2^32-1, strings read as numbers | calib
calib_data = { {-5, 2^33}, {16.9, 4294967295}, {4294967296, 9223372036854775807},
  {'0x10', ' 12 '}, {'abc', true}, {0/0, 1/0}, {-1/0, -0.5} }
--- a hundred thousand pairs | calib only=[0].,[4095].,[65536].,[99999].
calib_data = {}
for i = 0, 99999 do calib_data[i + 1] = { 0x10000000 + 4 * i, i * 7 } end
