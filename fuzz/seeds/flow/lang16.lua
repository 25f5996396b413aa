a = {b = {n = 3}} function a.b:get(x) return self.n + x end function a.b.c(x) return x end r = a.b:get(1) s = a.b.c(7)
