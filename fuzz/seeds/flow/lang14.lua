local fs = {} local i = 0 repeat i = i + 1 local j = i * 2 fs[i] = function() return j end until j >= 6 a = fs[1]() b = fs[3]()
