a = 1 == 1 and 2 or 3 b = nil and 1 c = false or nil d = 0 or 1 e = '' and 2
