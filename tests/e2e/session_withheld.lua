-- A host that lacks a service: the plugin answers failure values and never crashes.
-- arg[1] names what the host withholds: events, paths, exceptions, locks or string_locks.
local T = require("testlib")
-- The helper sits next to this script (ctest's LUA_PATH keeps only the test library's folder).
package.path = debug.getinfo(1, "S").source:match("^@(.*/)") .. "?.lua;" .. package.path
local F = require("session_tiffs")
local mode = arg[1]

if mode == "events" then
  T.test("without event handlers messages are dropped", function()
    local t = TiffPictureTQV()
    local called = false
    t.Error = function() called = true end
    T.eq(t:Open(FolderItem(T.write_bytes(F.tmp(T, "withheld_events.tif"), "not a TIFF"))), false)
    T.eq(called, false)
    T.eq(t:Open(FolderItem(T.write_bytes(F.tmp(T, "withheld_events_ok.tif"), F.grey_1x1(2)))), true)
    t:Close()
  end)
elseif mode == "paths" then
  T.test("without file references nothing opens, nothing is raised", function()
    local path = T.write_bytes(F.tmp(T, "withheld_paths.tif"), F.grey_1x1())
    local t = TiffPictureTQV()
    T.eq(t:Open(FolderItem(path)), false)
    T.eq(t:Create(FolderItem(F.tmp(T, "withheld_paths_new.tif")), 2), false)
    T.eq(io.open(F.tmp(T, "withheld_paths_new.tif"), "rb"), nil, "no file created")
    t:Close()
  end)
elseif mode == "exceptions" then
  T.test("without exception objects a nil folder item just fails", function()
    local t = TiffPictureTQV()
    local ok, result = pcall(function() return t:Open(nil) end)
    T.eq(ok, true, "nothing raised")
    T.eq(result, false)
  end)
elseif mode == "locks" then
  -- Without lock services the plugin cannot keep a host handle alive, so it keeps none: every
  -- operation that would hold one fails, and nothing is given back that was never taken (testlib
  -- checks the host's accounting after each test).
  T.test("without locks nothing is held and nothing is released twice", function()
    local t = TiffPictureTQV()
    local path = T.write_bytes(F.tmp(T, "withheld_locks.tif"), F.grey_1x1(2))
    T.eq(t:Open(FolderItem(path)), false, "Open holds the folder item")
    T.eq(t:OpenString(String(T.read_bytes(path), 0xFFFF)), false, "OpenString holds the string")
    local made = TIFFStringToTiffPictureTQV(T.read_bytes(path))
    T.eq(made and made.Pict, nil, "no picture can be held")
    t.Pict = NewPicture(2, 2)
    collectgarbage(); collectgarbage()
    T.eq(t.Pict, nil, "nor assigned")
    T.eq(t.InputBuffer, nil)
    t:Close()
  end)
elseif mode == "string_locks" then
  -- String arguments live for the call that reads them: their text arrives without a lock.
  T.test("without string locks string arguments still arrive", function()
    local t = TiffPictureTQV()
    T.eq(t:Create(FolderItem(F.tmp(T, "withheld_string_locks.tif")), 2), true)
    t.Software = "abc"
    T.eq(tostring(t.Software), "abc", "a string property")
    T.eq(t:SetFieldString(315, "xyz"), true)
    local value = Ref(nil)
    T.eq(t:GetFieldString(315, value), true)
    T.eq(tostring(value.value), "xyz", "a generic string field")
    t:Close()
    T.eq(t:CreateString(100, "w"), true, "a mode")
    t:Close()
  end)
else
  error("unknown mode " .. tostring(mode))
end

T.finish()
