t = {f = function(self, a, b) return a, b end} local x, y = t:f(1, 2) r = {t:f(3, 4)}
