-- The lsp_neovim test, inside Neovim (0.7 or later, headless): `kiv lsp`
-- as the editor's built-in client drives it.  nvim_lsp.sh gives, in the
-- environment, the tool (KIV_E2E_KIV), the script with a planted mistake
-- (KIV_E2E_FILE), the example it was copied from (KIV_E2E_ORIGINAL) and the
-- file to write the result to (KIV_E2E_RESULT): "pass", or what failed.

-- What the server must answer about the planted copy of single_1080p.lua.
local EXPECT = {
  -- The only finding: the planted line (the one line that differs from the example).
  diagnostic = {
    code = 'unknown-key',
    source = 'kiv',
    severity = 2,
    message = 'channels[0].hflp: no loader reads `hflp` here: it is ignored; did you mean `hflip`?',
  },
  -- The quick fix of that finding; applied, the line reads as in the example.
  fix_title = 'Replace `hflp` with `hflip`',
  -- Keys of the first stream table, asked just after its `id = 0,`.
  completion = {
    line_has = '{ id = 0, max_size = {1920, 1080}',
    after = 'id = 0,',
    offered = 'fast_seek_enable',
    new_text = 'fast_seek_enable = ',
    not_offered = 'max_M', -- given in that table already
  },
  -- Hover on the key `bits` of the video source.
  hover = { line_has = '\tbits = 12,', on = 'bits', mentions = { 'integer', '5 bits', 'Stored as 12' } },
  -- From the canvas source "chan_0.main" to the table of that buffer.
  definition = { line_has = 'source = {"chan_0.main"}', on = 'chan_0.main', target_has = '\tmain = {' },
}
local WAIT_MS = 20000 -- slow machines, emulation

local failures = {}
local function fail(what, got)
  table.insert(failures, got == nil and what or what .. ': got ' .. vim.inspect(got))
end
local function check(ok, what, got)
  if not ok then
    fail(what, got)
  end
  return ok
end

-- The 0-based line of the buffer that contains `text`, and the 0-based
-- column where it begins there.
local function find_line(buf, text)
  for i, line in ipairs(vim.api.nvim_buf_get_lines(buf, 0, -1, false)) do
    local col = line:find(text, 1, true)
    if col then
      return i - 1, col - 1
    end
  end
  error('no line of the buffer contains ' .. vim.inspect(text))
end

local function buf_line(buf, line)
  return vim.api.nvim_buf_get_lines(buf, line, line + 1, false)[1]
end

local function read_lines(path)
  local lines = {}
  for l in io.lines(path) do
    table.insert(lines, l)
  end
  return lines
end

-- One request to the server; its result, or nil after recording the failure.
local function request(buf, client_id, method, params)
  local answers, err = vim.lsp.buf_request_sync(buf, method, params, WAIT_MS)
  local answer = answers and answers[client_id]
  if not answer then
    fail(method .. ' got no answer (' .. tostring(err) .. ')')
  elseif answer.err then
    fail(method .. ' failed', answer.err)
  else
    return answer.result
  end
end

local function run()
  assert(vim.fn.has('nvim-0.7') == 1, 'Neovim 0.7 or later is needed')
  local file, original = os.getenv('KIV_E2E_FILE'), read_lines(os.getenv('KIV_E2E_ORIGINAL'))
  local planted
  for i, l in ipairs(read_lines(file)) do
    if l ~= original[i] then
      assert(not planted, 'the copy differs from the example in more than one line')
      planted = i - 1
    end
  end
  assert(planted, 'the copy does not differ from the example')

  vim.cmd('edit ' .. vim.fn.fnameescape(file))
  local buf = vim.api.nvim_get_current_buf()
  local exited
  local client_id = vim.lsp.start_client({
    name = 'kiv',
    cmd = { os.getenv('KIV_E2E_KIV'), 'lsp' },
    root_dir = vim.fn.fnamemodify(file, ':h'),
    on_exit = function(code, signal)
      exited = { code = code, signal = signal }
    end,
  })
  assert(client_id, 'the client did not start')
  assert(vim.lsp.buf_attach_client(buf, client_id), 'the buffer was not attached')
  local uri = vim.uri_from_bufnr(buf)
  local doc = { uri = uri }

  -- The finding of the planted line, and no other.
  vim.wait(WAIT_MS, function() return #vim.diagnostic.get(buf) > 0 or exited ~= nil end, 20)
  if exited then
    error('the server exited: ' .. vim.inspect(exited))
  elseif #vim.diagnostic.get(buf) == 0 then
    error('no diagnostics within ' .. WAIT_MS .. ' ms')
  end
  local diags = vim.diagnostic.get(buf)
  check(#diags == 1, 'one diagnostic', diags)
  local d = diags[1]
  local want = EXPECT.diagnostic
  check(d.lnum == planted, 'the diagnostic on the planted line ' .. planted, d)
  for _, k in ipairs({ 'code', 'source', 'severity', 'message' }) do
    check(d[k] == want[k], 'the diagnostic\'s ' .. k .. ' ' .. vim.inspect(want[k]), d[k])
  end

  -- Completion: the keys a stream table takes that it does not give yet.
  local c = EXPECT.completion
  local line, col = find_line(buf, c.line_has)
  col = buf_line(buf, line):find(c.after, col + 1, true) - 1 + #c.after
  local list = request(buf, client_id, 'textDocument/completion',
    { textDocument = doc, position = { line = line, character = col } })
  local items = list and (list.items or list) or {}
  local labels, offered = {}, nil
  for _, item in ipairs(items) do
    labels[item.label] = true
    if item.label == c.offered then
      offered = item
    end
  end
  if check(offered, 'completion offers ' .. c.offered, vim.tbl_keys(labels)) then
    check(offered.textEdit and offered.textEdit.newText == c.new_text,
      'completion inserts ' .. vim.inspect(c.new_text), offered.textEdit)
  end
  check(not labels[c.not_offered], 'completion leaves out ' .. c.not_offered .. ', given already')

  -- Hover on a key: its type, width and what the loader stored.
  local h = EXPECT.hover
  line, col = find_line(buf, h.line_has)
  col = buf_line(buf, line):find(h.on, col + 1, true) - 1
  local hover = request(buf, client_id, 'textDocument/hover',
    { textDocument = doc, position = { line = line, character = col } })
  local contents = hover and hover.contents
  local text = type(contents) == 'table' and (contents.value or contents[1]) or contents
  for _, m in ipairs(h.mentions) do
    check(type(text) == 'string' and text:find(m, 1, true), 'hover on ' .. h.on .. ' mentions ' .. m, hover)
  end

  -- Definition: a source buffer's name leads to that buffer's table.
  local def = EXPECT.definition
  line, col = find_line(buf, def.line_has)
  col = buf_line(buf, line):find(def.on, col + 1, true) - 1
  local loc = request(buf, client_id, 'textDocument/definition',
    { textDocument = doc, position = { line = line, character = col } })
  if loc and loc[1] then
    loc = loc[1]
  end
  local target = loc and (loc.range or loc.targetSelectionRange)
  check(target and (loc.uri or loc.targetUri) == uri and buf_line(buf, target.start.line):find(def.target_has, 1, true),
    'definition of ' .. def.on .. ' at the line with ' .. vim.inspect(def.target_has), loc)

  -- The quick fix of the finding, applied: the line reads as in the example.
  local lsp_diag = {
    range = { start = { line = d.lnum, character = d.col }, ['end'] = { line = d.end_lnum, character = d.end_col } },
    severity = d.severity, code = d.code, source = d.source, message = d.message,
  }
  local actions = request(buf, client_id, 'textDocument/codeAction',
    { textDocument = doc, range = lsp_diag.range, context = { diagnostics = { lsp_diag } } }) or {}
  local fix
  for _, a in ipairs(actions) do
    if a.title == EXPECT.fix_title then
      fix = a
    end
  end
  if not fix then
    error('no code action ' .. vim.inspect(EXPECT.fix_title) .. ' among ' .. vim.inspect(actions))
  end
  check(fix.kind == 'quickfix', 'the fix is a quickfix', fix.kind)
  vim.lsp.util.apply_workspace_edit(fix.edit, vim.lsp.get_client_by_id(client_id).offset_encoding)
  check(buf_line(buf, planted) == original[planted + 1], 'the fixed line reads as in the example',
    buf_line(buf, planted))

  -- The fixed text is checked again: its diagnostics are cleared.
  if not vim.wait(WAIT_MS, function() return #vim.diagnostic.get(buf) == 0 end, 20) then
    fail('diagnostics not cleared after the fix', vim.diagnostic.get(buf))
  end

  -- shutdown and exit: the server ends with status 0.
  vim.lsp.stop_client(client_id)
  if vim.wait(WAIT_MS, function() return exited ~= nil end, 20) then
    check(exited.code == 0 and exited.signal == 0, 'the server exits with status 0', exited)
  else
    fail('the server did not exit after shutdown and exit')
  end
end

local ok, err = xpcall(run, debug.traceback)
if not ok then
  fail(tostring(err))
end
local result = #failures == 0 and 'pass\n' or 'FAIL ' .. table.concat(failures, '\nFAIL ') .. '\n'
local out = assert(io.open(os.getenv('KIV_E2E_RESULT'), 'w'))
out:write(result)
out:close()
vim.cmd(#failures == 0 and 'qall!' or 'cquit 1')
