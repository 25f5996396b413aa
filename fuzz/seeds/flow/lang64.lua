a = not nil == true b = not (1 == 2) c = #'' d = -(-3) e = - -3 f = not not 0
