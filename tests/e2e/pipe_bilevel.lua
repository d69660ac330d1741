-- Bilevel import: ReadBW and ReadPreviewBW decode 1-bit scanlines themselves.
--
-- arg[1] is the pipe_images tool, arg[2] the back end's name. The images carry the pattern
-- bit(x, y) of pipe_images.c in every codec (none, PackBits, CCITT RLE, Group 3, Group 4), both
-- fill orders and both photometric senses; libtiff hands every one of them out with the same
-- most-significant-bit-first scanlines, so every expected pixel follows from the formula.
local T = require("testlib")
package.path = debug.getinfo(1, "S").source:match("^@(.*/)") .. "?.lua;" .. package.path
local P = require("pipe_common")

local images = P.images(arg, "pipe_bilevel")


local function bit(x, y)
  return ((x * 7 + y * 3 + x * y) % 5 == 0 or (x + 2 * y) % 11 == 0) and 1 or 0
end

-- The bit ReadBW finds for column c of a row that is W wide: FillOrder 2 reads the bits of each
-- byte from the least significant end, so the byte's eight pixels come out mirrored (padding
-- bits past the row are 0).
local function bit_read(c, y, fill, width)
  if fill == 1 then return bit(c, y) end
  local source = 8 * (c // 8) + 7 - c % 8
  return source < width and bit(source, y) or 0
end

local function grey(b, photometric)
  -- min-is-white: a set bit is black; min-is-black: white.
  if photometric == 0 then return b == 1 and 0 or 255 end
  return b == 1 and 255 or 0
end

-- Compares t.Pict with the rectangle (left, top) of a `width`-wide image, sampling every `step`.
local function expect_picture(t, spec)
  T.expect_pixels(t.Pict, spec.cols, spec.rows, function(i, j)
    local v = grey(bit_read(spec.left + spec.step * i, spec.top + spec.step * j, spec.fill, spec.width),
                   spec.photometric)
    return v, v, v
  end, spec.name, 3)
  T.eq(t.Mask, nil, "Mask")
end

local open = P.open

local CODECS = { "none", "packbits", "rle", "g3", "g4" }

T.group("ReadBW over codecs, fill orders and photometric senses", function()
  for _, codec in ipairs(CODECS) do
    for fill = 1, 2 do
      for photometric = 0, 1 do
        local name = string.format("bw_%s_fill%d_photo%d.tif", codec, fill, photometric)
        local spec = { name = name, width = 37, fill = fill, photometric = photometric, step = 1 }
        T.test(name .. " whole", function()
          local t = open(name)
          T.eq(t:ReadBW(), true)
          spec.left, spec.top, spec.cols, spec.rows = 0, 0, 37, 29
          expect_picture(t, spec)
        end)
        T.test(name .. " rectangles off byte columns and mid-strip tops", function()
          local t = open(name)
          -- Strips hold 4 rows: tops 5 and 10 start inside a strip, 8 at its start.
          for _, r in ipairs({ { 3, 5, 21, 7 }, { 13, 10, 24, 19 }, { 9, 8, 1, 1 }, { 36, 28, 1, 1 } }) do
            T.eq(t:ReadBW(r[1], r[2], r[3], r[4]), true)
            spec.left, spec.top, spec.cols, spec.rows = r[1], r[2], r[3], r[4]
            expect_picture(t, spec)
          end
        end)
        T.test(name .. " preview", function()
          local t = open(name)
          T.eq(t:ReadPreviewBW(), true)
          spec.step, spec.left, spec.top, spec.cols, spec.rows = 8, 0, 0, 5, 4
          expect_picture(t, spec)
          -- Column 3 is the fourth bit of each byte; every sample keeps that bit position.
          T.eq(t:ReadPreviewBW(3, 6, 30, 9), true)
          spec.left, spec.top, spec.cols, spec.rows = 3, 6, 4, 2
          expect_picture(t, spec)
          spec.step = 1
        end)
      end
    end
  end
end)

T.group("Previews", function()
  T.test("20 x 10 gives 3 x 2 from rows 0 and 8, columns 0, 8 and 16", function()
    local t = open("bw_20x10.tif")
    T.eq(t:ReadPreviewBW(), true)
    expect_picture(t, { name = "20x10", width = 20, fill = 1, photometric = 0, step = 8,
                        left = 0, top = 0, cols = 3, rows = 2 })
  end)
  T.test("a rectangle of width 7 fails for the preview but not for ReadBW", function()
    local t = open("bw_20x10.tif")
    T.eq(t:ReadPreviewBW(0, 0, 7, 8), false)
    T.eq(t.Pict, nil)
    T.eq(t:ReadPreviewBW(0, 0, 8, 7), false)
    T.eq(t:ReadBW(0, 0, 7, 8), true)
    T.eq(t.Pict.Width, 7)
  end)
end)

T.group("Refusals", function()
  T.test("an 8-bit image leaves both pictures nil", function()
    local t = open("lut_grey8.tif")
    t.Pict, t.Mask = NewPicture(2, 2), NewPicture(2, 2)
    T.eq(t:ReadBW(), false)
    T.eq(t.Pict, nil); T.eq(t.Mask, nil)
    T.eq(t:ReadPreviewBW(), false)
  end)
  T.test("rectangles past the edge, negative or empty", function()
    local t = open("bw_none_fill1_photo0.tif")
    for _, r in ipairs({ { 0, 0, 38, 29 }, { 0, 0, 37, 30 }, { 36, 0, 2, 1 }, { 0, 28, 1, 2 },
                         { -1, 0, 5, 5 }, { 0, -1, 5, 5 }, { 0, 0, 0, 5 }, { 0, 0, 5, 0 },
                         { 0x7FFFFFFF, 0, 1, 1 }, { 1, 0, 0x7FFFFFFF, 1 } }) do
      T.eq(t:ReadBW(r[1], r[2], r[3], r[4]), false, table.concat(r, ","))
      T.eq(t.Pict, nil)
    end
    T.eq(t:ReadPreviewBW(30, 0, 8, 8), false, "preview past the edge")
    T.eq(t:ReadBW(36, 28, 1, 1), true, "the last pixel alone")
  end)
  T.test("a directory without RowsPerStrip is refused; with it the same data reads", function()
    local t = open("bw_no_rowsperstrip.tif")
    T.eq(t:ReadBW(), false)
    T.eq(t:ReadPreviewBW(), false)
    local u = open("bw_raw.tif")
    T.eq(u:ReadBW(), true)
    expect_picture(u, { name = "raw", width = 20, fill = 1, photometric = 0, step = 1,
                        left = 0, top = 0, cols = 20, rows = 10 })
  end)
  T.test("RowsPerStrip 0: libtiff does not even open the file", function()
    local t = TiffPictureTQV()
    local errors = 0
    t.Error = function() errors = errors + 1 end
    T.eq(t:Open(FolderItem(images .. "/bw_rowsperstrip_0.tif")), false)
    T.truthy(errors > 0, "an Error event")
    T.eq(t:ReadBW(), false)
  end)
  T.test("nothing open: false, pictures untouched by the whole-image forms", function()
    local t = TiffPictureTQV()
    local p = NewPicture(1, 1)
    t.Pict = p
    T.eq(t:ReadBW(), false)
    T.eq(t:ReadPreviewBW(), false)
    T.truthy(t.Pict == p, "Pict kept")
    T.eq(t:ReadBW(0, 0, 1, 1), false)
    T.eq(t.Pict, nil, "the rectangle form releases first")
  end)
  T.test("a picture too large for the host: true without a picture", function()
    local t = open("rgba_wide1.tif")
    T.eq(t:ReadBW(), true)
    T.eq(t.Pict, nil)
    T.eq(t:ReadPreviewBW(), true)
    T.eq(t.Pict.Width, 5001)
  end)
  T.test("a width of 2^31 - 1: the preview's side is too large for the host, without overflowing", function()
    -- A header claiming 2,147,483,647 x 8 one-bit pixels; rounding the side up overflowed 32 bits.
    local entries = { { 256, 4, 2147483647 }, { 257, 4, 8 }, { 258, 3, 1 }, { 259, 3, 1 }, { 262, 3, 0 },
      { 273, 4, 200 }, { 277, 3, 1 }, { 278, 4, 8 }, { 279, 4, 64 } }
    local ifd = { string.pack("<I2", #entries) }
    for _, e in ipairs(entries) do
      ifd[#ifd + 1] = e[2] == 3 and string.pack("<I2I2I4I2I2", e[1], 3, 1, e[3], 0)
                      or string.pack("<I2I2I4I4", e[1], 4, 1, e[3])
    end
    local bytes = "II*\0" .. string.pack("<I4", 8) .. table.concat(ifd) .. string.pack("<I4", 0)
    local path = P.path("wide_header.tif")
    T.write_bytes(path, bytes .. string.rep("\0", 264 - #bytes))
    local t = TiffPictureTQV()
    T.eq(t:Open(FolderItem(path)), true)
    T.eq(t:ReadPreviewBW(), true)
    T.eq(t.Pict, nil)
    T.eq(t:ReadPreviewBW(0, 0, 2147483647, 8), true)
    T.eq(t.Pict, nil)
  end)
end)

T.group("Host code run while reading", function()
  T.test("closing the file at the first yield ends the read", function()
    local t = open("bw_g4_fill1_photo0.tif")
    t.YieldTicks = 1
    host.onYield(function() t:Close() end)
    T.eq(t:ReadBW(), false)
    host.onYield(nil)
    T.eq(t.Pict, nil)
  end)
  T.test("another file opened after the first preview row ends the read", function()
    local t = open("bw_g4_fill1_photo0.tif")
    t.YieldTicks = 1
    host.onYield(function()
      host.onYield(nil)
      t:Open(FolderItem(images .. "/rgba_wide8.tif"))
    end)
    T.eq(t:ReadPreviewBW(), false)
    host.onYield(nil)
    T.eq(t.Pict, nil)
  end)
end)

T.finish()
