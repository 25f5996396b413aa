function f(a, b, ...) return select end g = f
