-- The Pict and Mask properties: shared pictures held with one lock each.
local T = require("testlib")
-- The helper sits next to this script (ctest's LUA_PATH keeps only the test library's folder).
package.path = debug.getinfo(1, "S").source:match("^@(.*/)") .. "?.lua;" .. package.path
local F = require("session_tiffs")

local function marked(r, g, b)
  local p = NewPicture(2, 2, 32)
  p:SetPixel(1, 1, r, g, b)
  return p
end

local function live() return (host.live()) end

local function mark(p)
  local r, g, b = p:Pixel(1, 1)
  return r * 65536 + g * 256 + b
end

T.group("Pict and Mask", function()
  T.test("nothing held reads nil", function()
    local t = TiffPictureTQV()
    T.eq(t.Pict, nil)
    T.eq(t.Mask, nil)
  end)
  T.test("a picture assigned is the picture read back, shared", function()
    local t = TiffPictureTQV()
    local p = marked(1, 2, 3)
    t.Pict = p
    T.eq(mark(t.Pict), 0x010203)
    p:SetPixel(1, 1, 9, 9, 9)
    T.eq(mark(t.Pict), 0x090909, "not a copy")
    T.eq(live(), 1, "one reference held")
  end)
  T.test("assigning the same picture twice holds one reference", function()
    local t = TiffPictureTQV()
    local p = marked(1, 2, 3)
    t.Mask = p
    t.Mask = p
    t.Mask = t.Mask
    T.eq(live(), 1)
    t.Mask = nil
    T.eq(live(), 0, "nil releases")
    T.eq(t.Mask, nil)
  end)
  T.test("pictures survive Close and a second Open", function()
    local path = T.write_bytes(F.tmp(T, "pict_survives.tif"), F.grey_1x1())
    local t = TiffPictureTQV()
    t.Pict, t.Mask = marked(1, 1, 1), marked(2, 2, 2)
    T.eq(t:Open(FolderItem(path)), true)
    t:Close()
    T.eq(t:Open(FolderItem(path)), true)
    T.eq(t:Create(FolderItem(F.tmp(T, "pict_survives_create.tif")), 2), true)
    t:Close()
    T.eq(mark(t.Pict), 0x010101)
    T.eq(mark(t.Mask), 0x020202)
  end)
  T.test("destroying the object releases both pictures", function()
    local p, m = marked(1, 1, 1), marked(2, 2, 2)
    do
      local t = TiffPictureTQV()
      t.Pict, t.Mask = p, m
      T.eq(live(), 2)
    end
    collectgarbage("collect"); collectgarbage("collect")
    T.eq(live(), 0)
    T.eq(mark(p), 0x010101, "the picture itself lives on")
  end)
end)

T.group("YieldTicks", function()
  T.test("starts at 0 and is stored in the object", function()
    local a, b = TiffPictureTQV(), TiffPictureTQV()
    T.eq(a.YieldTicks, 0)
    a.YieldTicks = 30
    T.eq(a.YieldTicks, 30)
    T.eq(b.YieldTicks, 0)
    a.YieldTicks = -1
    T.eq(a.YieldTicks, -1)
  end)
end)

T.finish()
