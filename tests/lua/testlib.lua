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

-- Every file of the test data ("source/path", as INDEX.tsv lists them), sorted.
function T.testdata_files()
  local files = {}
  local index = assert(io.open(T.testdata("INDEX.tsv")))
  index:read("l")
  for line in index:lines() do
    local source, path = line:match("^([^\t]+)\t([^\t]+)")
    if source then files[#files + 1] = source .. "/" .. path end
  end
  index:close()
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

function T.finish()
  print(string.format("%d passed, %d failed", passed, failed))
  os.exit(failed == 0 and passed > 0 and 0 or 1)
end

return T
