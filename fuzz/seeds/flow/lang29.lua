a = 7 % 0.0 b = -7 % math.huge c = 7 % -math.huge
