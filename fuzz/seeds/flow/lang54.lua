t = {n = 0} function t.inc(self) self.n = self.n + 1 return self end t:inc():inc():inc()
