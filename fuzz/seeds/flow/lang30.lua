a = 5 % -math.huge b = -5 % -1e308 c = 1e308 * 10 % 2
