x = 5 while x > 0 do x = x - 2 end y = 0 repeat y = y + 1 until y * y > 50
