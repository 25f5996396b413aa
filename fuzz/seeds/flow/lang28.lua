t = {} t[1] = 1 t[1] = nil a = #t t.x = nil b = t.x
