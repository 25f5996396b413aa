local function range(n) local i = 0 return function() i = i + 1 if i <= n then return i, i * i end end end t = {} for k, v in range(4) do t[k] = v end
