local t = {1, 2, 3} local function sum(...) local s = 0 for _, v in next, {...} do s = s + v end return s end
