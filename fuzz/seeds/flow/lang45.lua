a, b = (function() end)() c = select
