local a1, a2 = 1, 2
