t = {1, 2, 3, nil, 5} a = #t u = {nil, nil, 3} b = #u v = {} v[1] = 1 v[2] = 2 v[4] = 4 c = #v
