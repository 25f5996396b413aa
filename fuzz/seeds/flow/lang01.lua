t = {} for i = 0.1, 1, 0.7 do t[#t + 1] = i end
