x = 0 for i = 1, 0 do x = 1 end for i = -3, -1, 1 do x = x + i end
