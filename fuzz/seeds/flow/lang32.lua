x = 0 for i = 1, 3 do x = x + i end for i = 3, 1, -1 do x = x * 10 + i end
