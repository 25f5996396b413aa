a = 10 == '10' b = 'abc' < 'abd' c = 'abc' < 'ab' d = '' == '' e = 'a' <= 'a' f = 2 >= 2.0
