-- Delivery of libtiff's errors and warnings to the Error and Warning events of `current`.
local T = require("testlib")
-- The helper sits next to this script (ctest's LUA_PATH keeps only the test library's folder).
package.path = debug.getinfo(1, "S").source:match("^@(.*/)") .. "?.lua;" .. package.path
local F = require("session_tiffs")

local function not_a_tiff(name)
  return FolderItem(T.write_bytes(F.tmp(T, name), "plain text, not a TIFF"))
end

T.group("routing", function()
  T.test("each session gets the errors of its own operations", function()
    local a, b = TiffPictureTQV(), TiffPictureTQV()
    local got = { a = 0, b = 0 }
    a.Error = function() got.a = got.a + 1 end
    b.Error = function() got.b = got.b + 1 end
    T.eq(a:Open(not_a_tiff("route_a.tif")), false)
    T.eq(got.a >= 1 and got.b == 0, true, "a's error to a")
    local before = got.a
    T.eq(b:Open(not_a_tiff("route_b.tif")), false)
    T.eq(got.a, before, "nothing more to a")
    T.truthy(got.b >= 1, "b's error to b")
  end)

  T.test("messages go to whichever object last became current", function()
    -- Five unknown tags: five warnings in one Open. The first warning's handler makes a new
    -- object, which becomes current and receives the rest.
    local path = T.write_bytes(F.tmp(T, "route_warnings.tif"), F.grey_1x1(5))
    local a = TiffPictureTQV()
    local to_a, to_c, c = 0, 0, nil
    a.Warning = function(self, module, message)
      to_a = to_a + 1
      if not c then
        c = TiffPictureTQV()
        c.Warning = function() to_c = to_c + 1 end
      end
    end
    T.eq(a:Open(FolderItem(path)), true)
    T.eq(to_a, 1, "first warning to a")
    T.eq(to_c, 4, "the rest to the newer object")
    a:Close()
  end)

  T.test("destroying the current object clears it: later messages are dropped", function()
    local path = T.write_bytes(F.tmp(T, "route_destroyed.tif"), F.grey_1x1(3))
    local a = TiffPictureTQV()
    local to_a = 0
    a.Warning = function()
      to_a = to_a + 1
      if to_a == 1 then
        local c = TiffPictureTQV()  -- becomes current ...
        c = nil
        collectgarbage("collect")   -- ... and is destroyed
      end
    end
    T.eq(a:Open(FolderItem(path)), true)
    T.eq(to_a, 1, "only the first warning reached a")
    a:Close()
  end)

  T.test("without a handler messages are dropped", function()
    local t = TiffPictureTQV()
    T.eq(t:Open(not_a_tiff("no_handler.tif")), false)
    local w = TiffPictureTQV()
    T.eq(w:Open(FolderItem(T.write_bytes(F.tmp(T, "no_handler_warn.tif"), F.grey_1x1(2)))), true)
    w:Close()
  end)

  T.test("warnings carry module and message", function()
    local t = TiffPictureTQV()
    local module, message
    t.Warning = function(self, m, msg) module, message = tostring(m), tostring(msg) end
    T.eq(t:Open(FolderItem(T.write_bytes(F.tmp(T, "warn_text.tif"), F.grey_1x1(1)))), true)
    T.eq(module, "TIFFReadDirectory")
    T.truthy(message:find("65000", 1, true), "message names the tag: " .. tostring(message))
    t:Close()
  end)
end)

T.group("message length", function()
  T.test("a message longer than the buffer is cut to 3,999 characters", function()
    -- A path of about 4,000 bytes in an existing folder: libtiff's "cannot open" message
    -- repeats it.
    local top = F.tmp(T, "long")
    local folder = top
    for _ = 1, 15 do folder = folder .. "/" .. string.rep("d", 250) end
    assert(os.execute("mkdir -p '" .. folder .. "'"))
    local path = folder .. "/" .. string.rep("f", 4050 - #folder) .. ".tif"
    local t = TiffPictureTQV()
    local message
    t.Error = function(self, m, msg) message = tostring(msg) end
    T.eq(t:Open(FolderItem(path)), false)
    os.execute("rm -rf '" .. top .. "'")
    T.truthy(message, "error delivered")
    T.eq(#message, 3999, "length")
    T.eq(message, (path .. ": No such file or directory"):sub(1, 3999))
  end)
end)

T.finish()
