t = {} t.a, t.b, t.a = 1, 2, 3
