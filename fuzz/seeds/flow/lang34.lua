local a, b, c = (function() return 1, 2, 3 end)() t = {a, b, c}
