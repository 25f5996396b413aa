-- The lsp_neovim test, inside Neovim (0.7 or later, headless): `kiv lsp`
-- as the editor's built-in client drives it, started by the Neovim setup of
-- docs/editors.md, which nvim_lsp.sh installs as the user's init.lua.  This
-- file is loaded before init.lua (--cmd) to watch the clients the setup
-- starts; nvim_lsp.sh then calls run_one() with one script opened or
-- run_two() with two.  The environment gives the tool (KIV_E2E_KIV), the
-- script with a planted mistake (KIV_E2E_FILE), the example it was copied
-- from (KIV_E2E_ORIGINAL) and the file to write the result to
-- (KIV_E2E_RESULT): "pass", or what failed.

-- Every client the setup starts, and how each ended.  The setup's own
-- configuration is kept; only its end is watched as well.
local started, exits = {}, {}
local start_client = vim.lsp.start_client
vim.lsp.start_client = function(config)
  local on_exit = config.on_exit
  local id
  config.on_exit = function(code, signal, ...)
    exits[id] = { code = code, signal = signal }
    if on_exit then
      return on_exit(code, signal, ...)
    end
  end
  id = start_client(config)
  table.insert(started, id)
  return id
end

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

-- The 0-based line where the planted copy differs from the example, and
-- the example's lines.
local function planted_line()
  local original, planted = read_lines(os.getenv('KIV_E2E_ORIGINAL')), nil
  for i, l in ipairs(read_lines(os.getenv('KIV_E2E_FILE'))) do
    if l ~= original[i] then
      assert(not planted, 'the copy differs from the example in more than one line')
      planted = i - 1
    end
  end
  assert(planted, 'the copy does not differ from the example')
  return planted, original
end

-- Waits for the first diagnostics of `buf`.
local function wait_diagnostics(buf)
  vim.wait(WAIT_MS, function() return #vim.diagnostic.get(buf) > 0 or next(exits) ~= nil end, 20)
  if next(exits) then
    error('the server exited: ' .. vim.inspect(exits))
  elseif #vim.diagnostic.get(buf) == 0 then
    error('no diagnostics within ' .. WAIT_MS .. ' ms in ' .. vim.api.nvim_buf_get_name(buf))
  end
end

-- The pids of the `kiv` processes Neovim runs.
local function servers()
  local kiv, me, pids = vim.loop.fs_realpath(os.getenv('KIV_E2E_KIV')), vim.fn.getpid(), {}
  local dir = assert(vim.loop.fs_scandir('/proc'))
  for name in vim.loop.fs_scandir_next, dir do
    local f = name:match('^%d+$') and io.open('/proc/' .. name .. '/stat')
    if f then
      -- "pid (name) state ppid ...": the name may hold blanks and parentheses.
      local ppid = tonumber((f:read('*l') or ''):match('.*%) %S+ (%d+)'))
      f:close()
      if ppid == me and vim.loop.fs_realpath('/proc/' .. name .. '/exe') == kiv then
        table.insert(pids, tonumber(name))
      end
    end
  end
  return pids
end

-- One script opened: the setup's client checks it, completes, hovers, finds
-- a definition, fixes the mistake and ends cleanly.
local function run_one()
  local planted, original = planted_line()
  local buf = vim.api.nvim_get_current_buf()
  local client_id = started[1]
  assert(client_id, 'the setup started no client for ' .. vim.api.nvim_buf_get_name(buf))
  check(#started == 1, 'the setup starts one client', started)
  local uri = vim.uri_from_bufnr(buf)
  local doc = { uri = uri }

  -- The finding of the planted line, and no other.
  wait_diagnostics(buf)
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

  -- References: back from that buffer's table to the canvas that binds it.
  if target then
    local refs = request(buf, client_id, 'textDocument/references', {
      textDocument = doc,
      position = target.start,
      context = { includeDeclaration = false },
    })
    local lines = {}
    for _, r in ipairs(refs or {}) do
      table.insert(lines, buf_line(buf, r.range.start.line))
    end
    check(#lines == 1 and lines[1]:find(def.line_has, 1, true),
      'references of the table of ' .. def.on .. ': the line with ' .. vim.inspect(def.line_has), lines)
  end

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
  if vim.wait(WAIT_MS, function() return exits[client_id] ~= nil end, 20) then
    local exited = exits[client_id]
    check(exited.code == 0 and exited.signal == 0, 'the server exits with status 0', exited)
  else
    fail('the server did not exit after shutdown and exit')
  end
end

-- Two scripts opened at once (nvim -O a.lua b.lua): the second FileType
-- comes while the first client is still starting, and must attach to it.
local function run_two()
  local bufs = vim.tbl_filter(function(b)
    return vim.api.nvim_buf_get_name(b):match('%.lua$') ~= nil
  end, vim.api.nvim_list_bufs())
  assert(#bufs == 2, 'two scripts open, not ' .. #bufs)
  for _, buf in ipairs(bufs) do
    wait_diagnostics(buf)
  end
  check(#started == 1, 'the setup starts one client for both scripts', started)
  for _, buf in ipairs(bufs) do
    local ids = vim.tbl_keys(vim.lsp.buf_get_clients(buf))
    check(#ids == 1 and ids[1] == started[1],
      vim.fn.fnamemodify(vim.api.nvim_buf_get_name(buf), ':t') .. ' is served by the first client', ids)
  end
  local pids = servers()
  check(#pids == 1, 'one kiv process', pids)
end

-- Runs a case and writes its result; Neovim quits with it.
local function case(run)
  return function()
    local ok, err = xpcall(run, debug.traceback)
    if not ok then
      fail(tostring(err))
    end
    local result = #failures == 0 and 'pass\n' or 'FAIL ' .. table.concat(failures, '\nFAIL ') .. '\n'
    local out = assert(io.open(os.getenv('KIV_E2E_RESULT'), 'w'))
    out:write(result)
    out:close()
    vim.cmd(#failures == 0 and 'qall!' or 'cquit 1')
  end
end

return { run_one = case(run_one), run_two = case(run_two) }
