-- Host code run during a yield (YieldTicks > 0, host.onYield) that closes the session, reads
-- another image, replaces the pictures or drops the program's references: the loop that yielded
-- must carry on or stop with its failure value, never touch what the handler took away.
local T = require("testlib")

local RGB = T.testdata("libtiff/images/rgb-3c-8b.tiff")
local BW = T.testdata("libtiff/images/miniswhite-1c-1b.tiff")
local PALETTE = T.testdata("libtiff/images/palette-1c-8b.tiff")
local LUT = {}
for i = 0, 255 do LUT[#LUT + 1] = i * 0x010101 end

local function opened(path)
  local t = TiffPictureTQV()
  T.truthy(t:Open(FolderItem(path)), "open " .. path)
  t.YieldTicks = 1 -- the first row always yields: the last-yield tick starts at 0
  return t
end

-- Runs fn(t) with `handler(t)` installed for the first yield only; the loop must have yielded.
local function during_yield(t, handler, fn)
  local fired = false
  host.onYield(function()
    if fired then return end
    fired = true
    handler(t)
  end)
  local ok, result = pcall(fn, t)
  host.onYield(nil)
  T.truthy(ok, "no Lua error: " .. tostring(result))
  T.truthy(fired, "the loop yielded")
  return result
end

local reads = {
  { "ReadRGB", RGB, function(t) return t:ReadRGB() end },
  { "ReadPreviewRGB", RGB, function(t) return t:ReadPreviewRGB(2) end },
  { "ReadBW", BW, function(t) return t:ReadBW() end },
  { "ReadBW rectangle", BW, function(t) return t:ReadBW(3, 3, 40, 30) end },
  { "ReadPreviewBW", BW, function(t) return t:ReadPreviewBW() end },
  { "ReadWithLUT", PALETTE, function(t) return t:ReadWithLUT(LUT) end },
  { "ReadWithLUT rectangle", PALETTE, function(t) return t:ReadWithLUT(LUT, 2, 2, 50, 40) end },
}

local hostile = {
  { "closes the session", function(t) t:Close() end },
  { "reads another image", function(t) T.truthy(t:Open(FolderItem(PALETTE))); t:ReadRGB() end },
  { "opens a TIFF string", function(t) t:OpenString(T.read_bytes(RGB)) end },
  { "drops the pictures", function(t) t.Pict = nil; t.Mask = nil end },
  { "changes the directory's width", function(t) t.Width = 3 end },
}

T.group("reads", function()
  for _, r in ipairs(reads) do
    for _, h in ipairs(hostile) do
      T.test(r[1] .. " while the handler " .. h[1], function()
        local t = opened(r[2])
        during_yield(t, h[2], r[3])
        t:Close()
        -- the session is still usable afterwards
        T.truthy(t:Open(FolderItem(RGB)))
        T.truthy(t:ReadRGB(), "a later read works")
        T.eq(t.Pict.Width, 157)
      end)
    end
  end
end)

local function writer(kind)
  local t = TiffPictureTQV()
  T.truthy(t:Open(FolderItem(RGB)))
  T.truthy(t:ReadRGB())
  T.truthy(t:Create(FolderItem(T.tmpfile("hard_reentrancy_" .. kind .. ".tif"))))
  t.YieldTicks = 1
  return t
end

local writes = {
  { "WriteRGB", function(t) return t:WriteRGB() end },
  { "WriteGray", function(t) return t:WriteGray() end },
  { "WriteBW", function(t) return t:WriteBW() end },
}

T.group("writes", function()
  for _, w in ipairs(writes) do
    for _, h in ipairs(hostile) do
      T.test(w[1] .. " while the handler " .. h[1], function()
        local t = writer(w[1])
        during_yield(t, h[2], w[2])
        t:Close()
      end)
    end
    T.test(w[1] .. " while the handler writes from another session", function()
      local t = writer(w[1])
      local other = writer(w[1] .. "_other")
      during_yield(t, function() other:WriteRGB(); other:Close() end, w[2])
      t:Close()
    end)
  end
end)

T.group("references dropped during a yield", function()
  T.test("the program drops the object during ReadRGB", function()
    local t = opened(RGB)
    local holder = { t }
    during_yield(t, function() holder[1] = nil; collectgarbage("collect") end, function(x) return x:ReadRGB() end)
  end)
  T.test("a handler destroys another session mid-read", function()
    local t = opened(RGB)
    local other = opened(BW)
    during_yield(t, function() other:Close(); other = nil; collectgarbage("collect") end,
                 function(x) return x:ReadRGB() end)
  end)
  T.test("nested yields: the handler runs a read that yields too", function()
    local t = opened(RGB)
    local inner = opened(BW)
    local depth = 0
    host.onYield(function()
      depth = depth + 1
      if depth == 1 then inner:ReadBW() end
    end)
    T.truthy(t:ReadRGB())
    host.onYield(nil)
    T.truthy(depth >= 2, "the inner read yielded as well")
  end)
end)

T.finish()
