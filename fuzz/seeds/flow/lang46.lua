for i = '1', '3' do t = (t or 0) + i end
