local function f() return end a, b = f(), 1 c = {f(), f()} d = {f(), nil}
