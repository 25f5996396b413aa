local x = 1 local function f() local function g() x = x + 1 return x end return g end h = f() a = h() b = h() c = x
