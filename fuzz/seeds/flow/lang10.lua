a = 0x.1 b = 0x1p-2 c = 1e-310 d = .5 e = 5. f = 3e0 g = 0xA.8p0 h = 0x7fffffffffffffff + 1 i = 9223372036854775808 j = 0xfffffffffffffffffff
