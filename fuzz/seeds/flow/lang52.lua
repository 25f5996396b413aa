a = 1 local a = a + 1 b = a
