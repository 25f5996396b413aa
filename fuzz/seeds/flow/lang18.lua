local function f(...) return ... end a = {f(1, nil, 3)} b = {f(), f()} c = {f(nil, nil)}
