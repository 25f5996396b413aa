s = "a\
b" u = "tab\tq" v = '\104\105' w = "\u{7FF}\u{FFFF}" x = #w
