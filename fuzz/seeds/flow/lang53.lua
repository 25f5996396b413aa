local function f(...) local a, b, c = ... return c, b, a end x, y, z = f(1, 2)
