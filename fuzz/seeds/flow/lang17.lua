local function f(...) local t = {..., n = 9} return t end x = f(1, 2, 3) local function g(...) return (...) end y = g(4, 5) z = {g(1, 2)}
