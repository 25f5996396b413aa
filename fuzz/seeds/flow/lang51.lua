local t = {} for i = 1, 3 do local v = i t[i] = function() v = v + 10 return v end end a = t[1]() b = t[1]() c = t[2]()
