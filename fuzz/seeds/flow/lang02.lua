t = {} for i = 1, 2, 0.25 do t[#t + 1] = i end for i = '1', 2 do t[#t + 1] = i end
