-- A host that lacks a service: the plugin answers failure values and never crashes.
-- arg[1] names what the host withholds: events, paths or exceptions.
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
else
  error("unknown mode " .. tostring(mode))
end

T.finish()
