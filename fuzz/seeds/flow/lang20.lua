local t = {} local i = 1 i, t[i] = i + 1, 20 u = t j, j = 1, 2 k = j
