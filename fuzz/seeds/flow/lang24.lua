local a <const> = 1
