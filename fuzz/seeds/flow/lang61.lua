t = {10, 20, 30} local i = 1 i, t[i] = i + 1, 'x' a = i
