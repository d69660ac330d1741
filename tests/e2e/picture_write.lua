-- WriteRGB and the full-colour reads on files: round trips, tags, previews, picture edge cases.
-- Runs on every picture back end; expected pixels are derived by hand.
local T = require("testlib")
local H = require("picture_helpers")

local config = host.config()
local DESKTOP = config.app == "desktop"

local function colour(x, y) return (x * 50) % 256, (y * 60) % 256, (x * 7 + y * 31) % 256 end
local function mask_value(x, y) return (x * 40 + y * 13) % 256 end

local counter = 0
local function tmp(name)
  counter = counter + 1
  return T.tmpfile(string.format("picture_write_%s_%d_%s.tif", config.app .. config.desktopDepth, counter, name))
end

-- Writes `pict` (and `mask`) into a new file with WriteRGB; returns the path and WriteRGB's result.
local function write_file(name, pict, mask, before)
  local path = tmp(name)
  local t = TiffPictureTQV()
  T.eq(t:Create(FolderItem(path)), true, "Create")
  t.Pict, t.Mask = pict, mask
  if before then before(t) end
  local ok = t:WriteRGB()
  t:Close()
  return path, ok
end

local function read_file(path)
  local t = TiffPictureTQV()
  T.eq(t:Open(FolderItem(path)), true, "Open " .. path)
  return t
end

T.group("WriteRGB round trip through a file", function()
  T.test("without a mask: colours exact, read-back mask black", function()
    local path, ok = write_file("opaque", T.picture(7, 5, colour))
    T.eq(ok, true, "WriteRGB")
    local t = read_file(path)
    T.eq(t:ReadRGB(), true)
    T.expect_pixels(t.Pict, 7, 5, colour, "Pict")
    T.expect_pixels(t.Mask, 7, 5, function() return 0, 0, 0 end, "Mask")
  end)
  T.test("with a mask: the mask's red byte is the alpha, so the read-back mask is inverted", function()
    local path, ok = write_file("masked", T.picture(7, 5, colour), H.grey(7, 5, mask_value))
    T.eq(ok, true, "WriteRGB")
    local t = read_file(path)
    T.eq(t:ReadRGB(), true)
    T.expect_pixels(t.Mask, 7, 5, function(x, y) local v = 255 - mask_value(x, y); return v, v, v end, "Mask")
    -- libtiff renders unassociated alpha premultiplied.
    T.expect_pixels(t.Pict, 7, 5, function(x, y)
      local r, g, b = colour(x, y)
      local a = mask_value(x, y)
      return H.premultiplied(r, a), H.premultiplied(g, a), H.premultiplied(b, a)
    end, "Pict")
  end)
  T.test("rows of 37 pixels, with and without a mask: every channel of every pixel in place", function()
    -- Wide enough for the converters' steps of several pixels and their ends; channels differ
    -- from each other and from pixel to pixel.
    local function wide(x, y) return (x * 7 + y) % 256, (x * 11 + 100 + y) % 256, (x * 13 + 200 + y) % 256 end
    local t = read_file(write_file("wide_opaque", T.picture(37, 3, wide)))
    T.eq(t:ReadRGB(), true)
    T.expect_pixels(t.Pict, 37, 3, wide, "Pict")
    local mask = function(x, y) return (x * 5 + y * 3 + 1) % 256 end
    t = read_file(write_file("wide_masked", T.picture(37, 3, wide), H.grey(37, 3, mask)))
    T.eq(t:ReadRGB(), true)
    T.expect_pixels(t.Mask, 37, 3, function(x, y) local v = 255 - mask(x, y); return v, v, v end, "Mask")
    T.expect_pixels(t.Pict, 37, 3, function(x, y)
      local r, g, b = wide(x, y)
      local a = mask(x, y)
      return H.premultiplied(r, a), H.premultiplied(g, a), H.premultiplied(b, a)
    end, "masked Pict")
  end)
  T.test("an all-white mask writes alpha 255: colours exact, mask black", function()
    local path = write_file("white_mask", T.picture(4, 3, colour), H.grey(4, 3, function() return 255 end))
    local t = read_file(path)
    T.eq(t:ReadRGB(), true)
    T.expect_pixels(t.Pict, 4, 3, colour, "Pict")
    T.expect_pixels(t.Mask, 4, 3, function() return 0, 0, 0 end, "Mask")
  end)
  T.test("a mask of another size: false, nothing written", function()
    local path, ok = write_file("mismatch", T.picture(4, 3, colour), H.grey(4, 4, mask_value))
    T.eq(ok, false)
    T.eq(#T.read_bytes(path), 8, "the file holds only the header")
  end)
  T.test("no Pict, or no file: false", function()
    local t = TiffPictureTQV()
    t.Pict = T.picture(2, 2, colour)
    T.eq(t:WriteRGB(), false, "no file")
    T.eq(t:Create(FolderItem(tmp("no_pict"))), true)
    t.Pict = nil
    T.eq(t:WriteRGB(), false, "no Pict")
  end)
  T.test("a session open for reading: the scanline write fails", function()
    local path = write_file("reopen", T.picture(3, 3, colour))
    local t = read_file(path)
    t.Pict = T.picture(3, 3, colour)
    local errors = 0
    t.Error = function() errors = errors + 1 end
    T.eq(t:WriteRGB(), false)
    T.truthy(errors > 0, "libtiff's error reached the Error event")
  end)
end)

T.group("WriteRGB tags", function()
  T.test("unset tags get their defaults: no compression, one row a strip, 72 dpi", function()
    local tags = H.tags(write_file("defaults", T.picture(6, 4, colour)))
    T.eq(tags.width, 6); T.eq(tags.height, 4)
    T.eq(tags.compression, 1); T.eq(tags.rowsperstrip, 1)
    T.eq(tags.xresolution, 72); T.eq(tags.yresolution, 72); T.eq(tags.resolutionunit, 2)
    T.eq(tags.orientation, 1); T.eq(tags.fillorder, 1)
    T.eq(tags.photometric, 2); T.eq(tags.planar, 1); T.eq(tags.bitspersample, 8)
    T.eq(tags.samplesperpixel, 3); T.eq(tags.extrasamples, "unset")
  end)
  T.test("with a mask: four samples, the fourth unassociated alpha", function()
    local tags = H.tags(write_file("mask_tags", T.picture(6, 4, colour), H.grey(6, 4, mask_value)))
    T.eq(tags.samplesperpixel, 4); T.eq(tags.extrasamples, 2)
    T.eq(tags.compression, 1); T.eq(tags.rowsperstrip, 1); T.eq(tags.xresolution, 72)
  end)
  T.test("tags set before WriteRGB are kept", function()
    local tags = H.tags(write_file("kept", T.picture(6, 4, colour), nil, function(t)
      t.Compression = 5; t.RowsPerStrip = 2; t.HorizontalResolution = 300; t.VerticalResolution = 150
    end))
    T.eq(tags.compression, 5); T.eq(tags.rowsperstrip, 2)
    T.eq(tags.xresolution, 300); T.eq(tags.yresolution, 150)
  end)
  T.test("0.5 dpi: replaced by 72 without a mask, kept with one", function()
    local half = function(t) t.HorizontalResolution = 0.5; t.VerticalResolution = 0.5 end
    local opaque = H.tags(write_file("half_opaque", T.picture(3, 3, colour), nil, half))
    T.eq(opaque.xresolution, 72); T.eq(opaque.yresolution, 72)
    local masked = H.tags(write_file("half_masked", T.picture(3, 3, colour), H.grey(3, 3, mask_value), half))
    T.eq(masked.xresolution, 0.5); T.eq(masked.yresolution, 0.5)
  end)
  T.test("one resolution set: the other gets 72 too, with a mask or without", function()
    for _, mask in ipairs({ false, true }) do
      local name = mask and "one_res_masked" or "one_res_opaque"
      local tags = H.tags(write_file(name, T.picture(3, 3, colour), mask and H.grey(3, 3, mask_value) or nil,
                                     function(t) t.HorizontalResolution = 300 end))
      T.eq(tags.xresolution, 300, name); T.eq(tags.yresolution, 72, name)
    end
  end)
end)

T.group("ReadPreviewRGB", function()
  local path = write_file("ten", T.picture(10, 10, colour), H.grey(10, 10, mask_value))
  T.test("factor 3 on 10 x 10: 4 x 4 from rows and columns 0, 3, 6, 9", function()
    local t = read_file(path)
    T.eq(t:ReadPreviewRGB(3), true)
    T.expect_pixels(t.Mask, 4, 4, function(x, y) local v = 255 - mask_value(3 * x, 3 * y); return v, v, v end, "Mask")
    T.expect_pixels(t.Pict, 4, 4, function(x, y)
      local r, g, b = colour(3 * x, 3 * y)
      local a = mask_value(3 * x, 3 * y)
      return H.premultiplied(r, a), H.premultiplied(g, a), H.premultiplied(b, a)
    end, "Pict")
  end)
  T.test("factor 1 equals ReadRGB; factor 10 and more gives 1 x 1", function()
    local t = read_file(path)
    T.eq(t:ReadRGB(), true)
    local full, fullMask = t.Pict, t.Mask
    T.eq(t:ReadPreviewRGB(1), true)
    T.expect_pixels(t.Pict, 10, 10, function(x, y) return full:Pixel(x, y) end, "Pict")
    T.expect_pixels(t.Mask, 10, 10, function(x, y) return fullMask:Pixel(x, y) end, "Mask")
    T.eq(t:ReadPreviewRGB(2147483647), true)
    T.eq(t.Pict.Width, 1); T.eq(t.Pict.Height, 1)
  end)
  T.test("factor 0 or negative fails and clears both pictures", function()
    local t = read_file(path)
    T.eq(t:ReadRGB(), true)
    T.eq(t:ReadPreviewRGB(0), false)
    T.eq(t.Pict, nil); T.eq(t.Mask, nil)
    T.eq(t:ReadRGB(), true)
    T.eq(t:ReadPreviewRGB(-3), false)
    T.eq(t.Pict, nil); T.eq(t.Mask, nil)
  end)
  T.test("no file open: ReadRGB and ReadPreviewRGB fail with nil pictures", function()
    local t = TiffPictureTQV()
    t.Pict, t.Mask = T.picture(1, 1, colour), T.picture(1, 1, colour)
    T.eq(t:ReadRGB(), false); T.eq(t:ReadPreviewRGB(2), false)
    T.eq(t.Pict, nil); T.eq(t.Mask, nil)
  end)
end)

T.group("picture sizes and depths", function()
  T.test("32,767 wide reads into pictures; 32,768 wide reads true with nil pictures", function()
    for _, case in ipairs({ { 32767, true }, { 32768, false } }) do
      local w, made = case[1], case[2]
      local path, ok = write_file("wide" .. w, T.picture(w, 1, function(x) return x % 256, 1, 2 end))
      T.eq(ok, true, "WriteRGB " .. w)
      local t = read_file(path)
      T.eq(t:ReadRGB(), true, "ReadRGB " .. w)
      T.eq(t.Pict ~= nil, made, "Pict made for " .. w)
      T.eq(t.Mask ~= nil, made, "Mask made for " .. w)
      if made then T.eq(select(1, t.Pict:Pixel(w - 1, 0)), (w - 1) % 256) end
    end
  end)
  T.test("a 16-bit and an 8-bit picture are read through a 32-bit copy", function()
    -- Values a 5-bit channel holds exactly (the host widens 5 bits k to k << 3 | k >> 2).
    local function widened(k) return (k << 3) | (k >> 2) end
    local function five(x, y) return widened(x * 4), widened(y * 5), widened(31) end
    local function grey(x, y) local v = (x * 17 + y) % 256; return v, v, v end
    for _, case in ipairs({ { 16, five }, { 8, grey } }) do
      local depth, expected = case[1], case[2]
      local p = T.picture(6, 5, expected, depth)
      local path, ok = write_file("depth" .. depth, p)
      T.eq(ok, true, "WriteRGB from depth " .. depth)
      local t = read_file(path)
      T.eq(t:ReadRGB(), true)
      T.expect_pixels(t.Pict, 6, 5, expected, "Pict from depth " .. depth)
    end
  end)
  T.test("picture descriptions are unlocked again after reading and writing", function()
    local p, m = T.picture(3, 3, colour), H.grey(3, 3, mask_value)
    local path = write_file("locks", p, m)
    T.eq(p.DescriptionLocks, 0, "Pict"); T.eq(m.DescriptionLocks, 0, "Mask")
    local t = read_file(path)
    T.eq(t:ReadRGB(), true)
    T.eq(t.Pict.DescriptionLocks, 0, "read Pict"); T.eq(t.Mask.DescriptionLocks, 0, "read Mask")
  end)
  T.test("the back end's own pixel layout is what the host sees", function()
    local t = read_file(write_file("layout", T.picture(2, 2, colour)))
    T.eq(t:ReadRGB(), true)
    T.eq(t.Pict.Depth, DESKTOP and config.desktopDepth or 32)
  end)
end)

T.group("yielding", function()
  T.test("YieldTicks 0 never yields while reading or writing", function()
    local before = host.yields()
    local path = write_file("no_yield", T.picture(20, 20, colour), H.grey(20, 20, mask_value))
    local t = read_file(path)
    T.eq(t:ReadRGB(), true); T.eq(t:ReadPreviewRGB(2), true)
    T.eq(host.yields(), before)
  end)
end)

T.finish()
