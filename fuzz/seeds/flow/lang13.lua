local fs = {} local i = 1 while i <= 3 do local j = i fs[i] = function() return j end i = i + 1 end a = fs[1]() b = fs[3]()
