-- Shared test library for host programs run by tqvhost.
--
--   local T = require("testlib")
--   T.group("Open and Create", function()
--     T.test("Create(file, 2) writes II", function() ... T.eq(a, b) ... end)
--   end)
--   T.finish()   -- prints "N passed, N failed" and exits non-zero on any failure
--
-- After every test the library collects garbage and checks reference balance: the plugin must
-- hold exactly as many host references as before the test (locals die with the test function),
-- and the host must have recorded no accounting fault (double release, unlock of a dead handle)
-- that the test did not consume itself with host.accountingErrors().
local T = {}
local passed, failed, current_group = 0, 0, nil
local only = os.getenv("TQV_TEST_FILTER")

local function where(level)
  local info = debug.getinfo(level + 1, "Sl")
  return info and (info.short_src .. ":" .. info.currentline) or "?"
end

local function fmt(v)
  if type(v) == "string" then return string.format("%q", v) end
  return tostring(v)
end

function T.fail(msg, level) error({ testlib = true, msg = msg, at = where((level or 1) + 1) }, 0) end

function T.eq(actual, expected, what)
  if actual ~= expected then
    T.fail((what and (what .. ": ") or "") .. "expected " .. fmt(expected) .. ", got " .. fmt(actual), 2)
  end
end

function T.near(actual, expected, tol, what)
  if type(actual) ~= "number" or math.abs(actual - expected) > (tol or 1e-6) then
    T.fail((what and (what .. ": ") or "") .. "expected " .. fmt(expected) .. " +/- " .. tostring(tol) .. ", got " .. fmt(actual), 2)
  end
end

function T.truthy(v, what) if not v then T.fail((what or "value") .. " is " .. fmt(v), 2) end end
function T.falsy(v, what) if v then T.fail((what or "value") .. " is " .. fmt(v) .. ", expected false/nil", 2) end end

-- Asserts that fn raises a host exception of the given class (and message, if given).
function T.raises(class, message, fn)
  local ok, err = pcall(fn)
  if ok then T.fail("expected " .. class .. " to be raised", 2) end
  if type(err) ~= "table" or err.class ~= class then
    T.fail("expected " .. class .. ", got " .. fmt(type(err) == "table" and (err.class or err.msg) or err), 2)
  end
  if message and err.message ~= message then
    T.fail("expected message " .. fmt(message) .. ", got " .. fmt(err.message), 2)
  end
  return err
end

local function live_total()
  collectgarbage("collect"); collectgarbage("collect")
  local n, kinds = host.live()
  return n, kinds
end

local function describe_kinds(kinds)
  local parts = {}
  for k, v in pairs(kinds or {}) do if v ~= 0 then parts[#parts + 1] = k .. "=" .. v end end
  table.sort(parts)
  return table.concat(parts, " ")
end

function T.test(name, fn)
  local full = current_group and (current_group .. " / " .. name) or name
  if only and not full:find(only, 1, true) then return end
  local before = live_total()
  local ok, err = xpcall(fn, function(e)
    if type(e) == "table" and e.testlib then return e end
    if type(e) == "table" and e.class then
      return { msg = "uncaught host exception " .. tostring(e.class) .. ": " .. tostring(e.message), at = debug.traceback("", 2) }
    end
    return { msg = tostring(e), at = debug.traceback("", 2) }
  end)
  if ok then
    local after, kinds = live_total()
    local faults = host.accountingErrors()
    if after ~= before then
      ok, err = false, { msg = string.format("reference balance: plugin holds %d references, %d before the test (%s)",
                                             after, before, describe_kinds(kinds)), at = "" }
    elseif #faults > 0 then
      -- a release beyond the plugin's locks, an unlock of a dead handle, a result returned
      -- without a lock: balanced counts can hide these
      ok, err = false, { msg = "host accounting errors: " .. table.concat(faults, "; "), at = "" }
    end
  end
  if ok then
    passed = passed + 1
    print("ok   " .. full)
  else
    failed = failed + 1
    print("FAIL " .. full .. "\n     " .. tostring(err.msg) .. "\n     " .. tostring(err.at))
  end
end

function T.group(name, fn)
  local saved = current_group
  current_group = saved and (saved .. " / " .. name) or name
  fn()
  current_group = saved
end

-- A fresh path under the test's scratch folder.
function T.tmpfile(name)
  local dir = os.getenv("TQV_TMP") or "/tmp"
  return dir .. "/" .. name
end

function T.testdata(rel)
  return (os.getenv("TQV_TESTDATA") or "../shared/testdata") .. "/" .. rel
end

-- The rows of the test data's INDEX.tsv below its header, in file order, each the list of its
-- tab-separated fields (empty fields kept, so that columns keep their numbers).
function T.testdata_index()
  local rows = {}
  for line in io.lines(T.testdata("INDEX.tsv")) do
    local fields = {}
    for field in (line .. "\t"):gmatch("([^\t]*)\t") do fields[#fields + 1] = field end
    if fields[1] ~= "source" then rows[#rows + 1] = fields end
  end
  return rows
end

-- Every file of the test data ("source/path", as INDEX.tsv lists them), sorted.
function T.testdata_files()
  local files = {}
  for _, row in ipairs(T.testdata_index()) do files[#files + 1] = row[1] .. "/" .. row[2] end
  table.sort(files)
  return files
end

-- Records every Warning and Error event of session `t`, in order. Returns take(): the messages
-- since the last take, "W module: message" or "E module: message" joined by " | ".
function T.message_log(t)
  local messages = {}
  local function recorder(kind)
    return function(self, module, message)
      messages[#messages + 1] = kind .. " " .. tostring(module) .. ": " .. tostring(message)
    end
  end
  t.Warning, t.Error = recorder("W"), recorder("E")
  return function()
    local text = table.concat(messages, " | ")
    messages = {}
    return text
  end
end

function T.read_bytes(path)
  local f = assert(io.open(path, "rb")); local s = f:read("a"); f:close(); return s
end

-- Replaces the file at `path` with `bytes`; returns the path.
function T.write_bytes(path, bytes)
  local f = assert(io.open(path, "wb")); f:write(bytes); f:close()
  return path
end

-- `s` (a string or a number) as one word for the POSIX shell.
function T.quote(s) return "'" .. tostring(s):gsub("'", "'\\''") .. "'" end

-- A w x h host picture (depth 32 unless given) whose pixel (x, y) is colour(x, y) -> r, g, b.
function T.picture(w, h, colour, depth)
  local p = NewPicture(w, h, depth or 32)
  for y = 0, h - 1 do for x = 0, w - 1 do p:SetPixel(x, y, colour(x, y)) end end
  return p
end

-- Fails at the first pixel of host picture `p` that differs from expected(x, y) -> r, g, b; the
-- size must be w x h. `level` as for T.fail (default 2: the line that called this), for checks
-- made through a helper of the script.
function T.expect_pixels(p, w, h, expected, what, level)
  T.truthy(p, what .. ": a picture")
  T.eq(p.Width, w, what .. ": width"); T.eq(p.Height, h, what .. ": height")
  for y = 0, h - 1 do
    for x = 0, w - 1 do
      local r, g, b = p:Pixel(x, y)
      local er, eg, eb = expected(x, y)
      if r ~= er or g ~= eg or b ~= eb then
        T.fail(string.format("%s: pixel (%d, %d) = %d,%d,%d, expected %d,%d,%d", what, x, y, r, g, b, er, eg, eb),
               level or 2)
      end
    end
  end
end

function T.finish()
  print(string.format("%d passed, %d failed", passed, failed))
  os.exit(failed == 0 and passed > 0 and 0 or 1)
end

return T
