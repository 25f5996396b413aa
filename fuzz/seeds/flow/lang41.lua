a = 0xffffffffffffffff b = 0x8000000000000000 c = -0x8000000000000000 d = 0x1P4 e = 1E2 f = 0XAp1
