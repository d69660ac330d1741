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

-- Runs fn(t) with `handler(t)` installed for yield number `at` only (default the first); the loop
-- must have yielded that often.
local function during_yield(t, handler, fn, at)
  local fired, seen = false, 0
  host.onYield(function()
    seen = seen + 1
    if seen == (at or 1) then
      fired = true
      handler(t)
    end
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
  { "changes the compression", function(t) t.Compression = 5 end },
  { "reads another image", function(t) T.truthy(t:Open(FolderItem(PALETTE))); t:ReadRGB() end },
  { "opens a TIFF string", function(t) t:OpenString(T.read_bytes(RGB)) end },
  { "drops the pictures", function(t) t.Pict = nil; t.Mask = nil end },
  { "changes the directory's width", function(t) t.Width = 3 end },
}

T.group("reads", function()
  -- A scanline read's first yield comes before its first row or right after it: a codec put in
  -- place there would decode the rest of the strip with the wrong state.
  for _, r in ipairs(reads) do
    if r[1]:find("BW") or r[1]:find("LUT") then
      T.test(r[1] .. " stops with false when the handler changes the compression", function()
        local t = opened(r[2])
        T.eq(during_yield(t, function(s) s.Compression = 5 end, r[3]), false)
      end)
      -- The new handle may take the old one's address and has made the same changes so far.
      T.test(r[1] .. " stops with false when the handler opens the same file again", function()
        local t = opened(r[2])
        T.eq(during_yield(t, function(s) s:Close(); T.truthy(s:Open(FolderItem(r[2]))) end, r[3]), false)
      end)
    end
  end
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
  { "WriteRGB without a mask", function(t) t.Mask = nil; return t:WriteRGB() end },
  { "WriteGray", function(t) return t:WriteGray() end },
  { "WriteBW", function(t) return t:WriteBW() end },
}

-- A session about to write a tall, narrow picture (and mask): after the first yield, which comes
-- before the first row or right after it, the next comes only once the clock has moved on a tick,
-- and these rows take longer than that.
local function tall_writer(kind)
  local t = writer(kind)
  t.Pict = NewPicture(16, 30000)
  t.Mask = NewPicture(16, 30000)
  return t
end

-- Handlers that take the file away while rows are being written (the second yield).
local between_rows = {
  { "closes the file", function(t) t:Close() end },
  { "creates a file with wider rows in its place", function(t)
    t:Close()
    T.truthy(t:Create(FolderItem(T.tmpfile("hard_reentrancy_wider.tif"))))
    t.Width = 4000; t.Height = 3; t.BitsPerSample = 8; t.SamplesPerPixel = 4; t.Photometric = 2
  end },
}

T.group("writes", function()
  for _, w in ipairs(writes) do
    for _, h in ipairs(between_rows) do
      T.test(w[1] .. " stops with false when a handler between rows " .. h[1], function()
        local t = tall_writer(w[1])
        T.eq(during_yield(t, h[2], w[2], 2), false)
        t:Close()
      end)
    end
    T.test(w[1] .. " goes on whole when a handler between rows reads the image being written", function()
      local t = tall_writer(w[1])
      local read = "not called"
      T.eq(during_yield(t, function(s) read = s:Scanline(0) end, w[2], 2), true)
      T.eq(read, nil, "the read is refused")
      t:Close()
      local r = TiffPictureTQV()
      T.truthy(r:Open(FolderItem(T.tmpfile("hard_reentrancy_" .. w[1] .. ".tif"))))
      T.truthy(r:Scanlines(0, 30000), "every row reads back")
    end)
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

-- Error and Warning handlers run while libtiff is inside a call on the session's handle: the
-- plugin's methods then give their failure value at once, except Close, which takes effect when
-- the operation that raised the message returns.
local CORPUS = (debug.getinfo(1, "S").source:match("^@(.*/)e2e/") or "tests/") .. "corpus/"
local damaged = { "strip_offset_past_end.tif", "lzw_garbage.tif", "jpeg_garbage.tif", "deflate_garbage.tif" }

local in_handler = {
  { "closes the session", function(t) t:Close() end },
  { "opens another file", function(t) T.falsy(t:Open(FolderItem(RGB))) end },
  { "opens a TIFF string", function(t) T.falsy(t:OpenString(T.read_bytes(RGB))) end },
  { "reads the image again", function(t) T.falsy(t:ReadRGB()) end },
  { "reads it as bilevel", function(t) T.falsy(t:ReadBW()) end },
  { "ends the RGBA memory read", function(t) t:ReadRGBMemoryEnd() end },
  { "changes the width", function(t) t.Width = 3; T.eq(t.Width, 0, "no width while libtiff is busy") end },
  { "selects the directory", function(t) T.falsy(t:SetImageIndex(0)) end },
  { "converts a string to a picture", function() T.eq(TIFFStringToPictureTQV(T.read_bytes(RGB)), nil) end },
}

local damaged_reads = {
  { "ReadRGB", function(t) return t:ReadRGB() end },
  { "ReadBW", function(t) return t:ReadBW() end },
  { "ReadWithLUT", function(t) return t:ReadWithLUT({ 0, 0xFFFFFF }) end },
  { "RGBA memory", function(t) return t:ReadRGBMemoryBegin(Ref(nil)) and t:ReadRGBMemoryStep(0, 0, 8, 8) end },
  { "Scanline", function(t) return t:Scanline(0) end },
}

T.group("Error handlers", function()
  for _, h in ipairs(in_handler) do
    T.test("a handler that " .. h[1], function()
      local handled = 0
      for _, name in ipairs(damaged) do
        for _, r in ipairs(damaged_reads) do
          local t = TiffPictureTQV()
          T.truthy(t:Open(FolderItem(CORPUS .. name)), name)
          t.Error = function(self)
            handled = handled + 1
            h[2](self)
          end
          local ok, err = pcall(r[2], t)
          T.truthy(ok, name .. " " .. r[1] .. ": " .. tostring(err))
          t.Error = nil
          t:ReadRGBMemoryEnd()
          t:Close()
          -- the session works again once the operation has returned
          T.truthy(t:Open(FolderItem(RGB)))
          T.truthy(t:ReadRGB())
        end
      end
      T.truthy(handled > 0, "the damaged files raised errors")
    end)
  end
  T.test("Close from a handler takes effect when the read returns", function()
    local t = TiffPictureTQV()
    T.truthy(t:Open(FolderItem(CORPUS .. "lzw_garbage.tif")))
    local closes = 0
    t.Error = function(self) self:Close(); closes = closes + 1 end
    T.falsy(t:ReadWithLUT({ 0, 0xFFFFFF }), "the read stops: its handle is gone")
    T.truthy(closes > 0)
    T.eq(t:ImageCount(), 0, "nothing open")
  end)
  T.test("MirrorVertical stops when a handler closes either session", function()
    for _, closing in ipairs({ "self", "output" }) do
      local t, output = TiffPictureTQV(), TiffPictureTQV()
      T.truthy(t:Open(FolderItem(CORPUS .. "lzw_garbage.tif")))
      T.truthy(output:Open(FolderItem(CORPUS .. "lzw_garbage.tif")))
      local height, closes = t.Height, 0
      t.Error = function(self)
        closes = closes + 1
        if closing == "self" then self:Close() else output:Close() end
      end
      T.falsy(t:MirrorVertical(output), closing)
      T.truthy(closes > 0 and closes < height / 4, closing .. ": stopped after " .. closes .. " messages")
      t:Close()
      output:Close()
    end
  end)
  -- Warnings leave libtiff's call going: the operation used to finish on the handle the program
  -- had closed and answer success (an open kept the file open).
  T.test("Close from a Warning handler ends an operation that would have succeeded", function()
    local UNKNOWN_TAGS = T.testdata("libtiff/images/deflate-last-strip-extra-data.tiff") -- warns on opening
    local OLD_LZW = T.testdata("image-tiff/libtiffpic/quad-lzw.tif") -- warns on decoding
    local cases = {
      { "Open", UNKNOWN_TAGS, function(t) return t:Open(FolderItem(UNKNOWN_TAGS)) end },
      { "OpenString", UNKNOWN_TAGS, function(t) return t:OpenString(T.read_bytes(UNKNOWN_TAGS)) end },
      { "SetImageIndex", UNKNOWN_TAGS, function(t) return t:SetImageIndex(0) end },
      { "ReadRGB", OLD_LZW, function(t) return t:ReadRGB() end },
      { "ReadPreviewRGB", OLD_LZW, function(t) return t:ReadPreviewRGB(2) end },
      { "Scanline", OLD_LZW, function(t) return t:Scanline(0) ~= nil end },
      { "ReadRGB(ErrorMessage)", OLD_LZW, function(t) return t:ReadRGB(Ref(nil)) ~= nil end },
      { "ReadRGBMemoryStep", OLD_LZW, function(t)
          return t:ReadRGBMemoryBegin(Ref(nil)) and t:ReadRGBMemoryStep(0, 0, 8, 8) ~= nil
        end },
    }
    for _, case in ipairs(cases) do
      local t = TiffPictureTQV()
      T.truthy(t:Open(FolderItem(case[2])), case[1])
      local warnings = 0
      t.Warning = function(self) warnings = warnings + 1; self:Close() end
      T.falsy(case[3](t), case[1])
      T.truthy(warnings > 0, case[1] .. ": warned")
      T.eq(t:ImageCount(), 0, case[1] .. ": nothing open")
      t.Warning = nil
      T.truthy(t:Open(FolderItem(case[2])), case[1] .. ": opens again")
      T.truthy(t:ReadRGB(), case[1] .. ": reads again")
      t:Close()
    end
  end)
  T.test("a file being written and closed from a handler is still written", function()
    local path = T.tmpfile("hard_reentrancy_handler_close.tif")
    local source = TiffPictureTQV()
    T.truthy(source:Open(FolderItem(RGB)))
    T.truthy(source:ReadRGB())
    local t = TiffPictureTQV()
    T.truthy(t:Create(FolderItem(path)))
    t.Pict = source.Pict
    t.Error = function(self) self:Close() end
    t.Warning = function(self) self:Close() end
    T.truthy(t:WriteRGB())
    assert(t:SetFieldInteger(999999, 1) == false) -- an unknown tag: libtiff raises an Error
    T.eq(t:ImageCount(), 0, "closed by the handler")
    local back = TiffPictureTQV()
    T.truthy(back:Open(FolderItem(path)), "the file was finished when the call returned")
    T.eq(back.Width, 157)
  end)
end)

T.finish()
