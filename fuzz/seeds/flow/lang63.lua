t = {} for k, v in function(s, c) if c < 3 then return c + 1, c * 2 end end, nil, 0 do t[k] = v end
