t = {[1] = 1, [2] = 2, [3] = 3, n = 3} a = t.n b = t[2] c = {[true] = 'yes', [false] = 'no'} d = c[true] e = c[1 == 1]
