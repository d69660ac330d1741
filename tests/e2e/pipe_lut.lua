-- Lookup-table import: ReadWithLUT maps raw samples through the program's colour table.
--
-- arg[1] is the pipe_images tool, arg[2] the back end's name. The images hold sample(x, y, s)
-- of pipe_images.c at 8, 16 and 32 bits, one or three samples, in strips of 4 rows.
local T = require("testlib")
package.path = debug.getinfo(1, "S").source:match("^@(.*/)") .. "?.lua;" .. package.path
local P = require("pipe_common")

local images = P.images(arg, "pipe_lut")
local W, H = 23, 9

local function sample(x, y, s, bits)
  if bits == 8 then return (x * 16 + y * 40 + s * 85) & 0xFF end
  if bits == 16 then return (x * 4099 + y * 997 + s * 21845) & 0xFFFF end
  return (x * 0x0B234567 + y * 0x189ABCDE + s * 0x55555555) & 0xFFFFFFFF
end

-- 32-bit samples index by their signed value divided by 65,536 toward zero; negative quotients
-- use entry 0.
local function index(v, bits)
  if bits ~= 32 then return v end
  local signed = v >= 0x80000000 and v - 0x100000000 or v
  local q = signed >= 0 and signed // 65536 or -((-signed) // 65536)
  return q < 0 and 0 or q
end

local function hashed(n)
  local t = {}
  for i = 0, n - 1 do t[i + 1] = (i * 2654435761 + 12345) & 0xFFFFFF end
  return t
end
local HASH = hashed(65536)

local function channels(colour) return (colour >> 16) & 0xFF, (colour >> 8) & 0xFF, colour & 0xFF end

local function entry(table_, i)
  return table_[i + 1] or 0 -- past the table's end: black
end

-- The colour ReadWithLUT must give the pixel at (x, y).
local function expected(table_, x, y, samples, bits)
  local i0 = index(sample(x, y, 0, bits), bits)
  if samples == 1 then return channels(entry(table_, i0)) end
  local r = channels(entry(table_, i0))
  local _, g = channels(entry(table_, index(sample(x, y, 1, bits), bits)))
  local _, _, b = channels(entry(table_, index(sample(x, y, 2, bits), bits)))
  return r, g, b
end

local function expect_picture(t, table_, rect, samples, bits)
  T.expect_pixels(t.Pict, rect[3], rect[4], function(i, j)
    return expected(table_, rect[1] + i, rect[2] + j, samples, bits)
  end, table.concat(rect, ","), 3)
  T.eq(t.Mask, nil, "Mask")
end

local open = P.open

T.group("Layouts", function()
  for _, layout in ipairs({ { "grey8", 1, 8 }, { "grey16", 1, 16 }, { "grey32", 1, 32 }, { "rgb8", 3, 8 },
                            { "rgb16", 3, 16 }, { "rgb32", 3, 32 } }) do
    local name, samples, bits = "lut_" .. layout[1] .. ".tif", layout[2], layout[3]
    T.test(name .. " whole and by rectangle", function()
      local t = open(name)
      T.eq(t:ReadWithLUT(HASH), true)
      expect_picture(t, HASH, { 0, 0, W, H }, samples, bits)
      -- Tops 2 and 5 lie inside strips of 4 rows.
      for _, r in ipairs({ { 5, 2, 11, 6 }, { 22, 5, 1, 4 }, { 0, 8, 23, 1 } }) do
        T.eq(t:ReadWithLUT(HASH, r[1], r[2], r[3], r[4]), true)
        expect_picture(t, HASH, r, samples, bits)
      end
    end)
  end
  T.test("32-bit samples at or above 0x80000000 use entry 0", function()
    local negatives = 0
    for y = 0, H - 1 do
      for x = 0, W - 1 do
        if sample(x, y, 0, 32) >= 0x80000000 then negatives = negatives + 1 end
      end
    end
    T.truthy(negatives > 20, "the pattern holds such samples")
    T.eq(index(0x0001FFFF, 32), 1); T.eq(index(0x00010000, 32), 1); T.eq(index(0xFFFF0001, 32), 0)
    local t = open("lut_grey32.tif")
    T.eq(t:ReadWithLUT({ 0x102030 }), true)
    for y = 0, H - 1 do
      for x = 0, W - 1 do
        local want = index(sample(x, y, 0, 32), 32) == 0 and 0x10 or 0
        T.eq((t.Pict:Pixel(x, y)), want, string.format("(%d, %d)", x, y))
      end
    end
  end)
end)

T.group("Tables", function()
  T.test("an empty table gives black", function()
    local t = open("lut_rgb16.tif")
    T.eq(t:ReadWithLUT({}), true)
    expect_picture(t, {}, { 0, 0, W, H }, 3, 16)
  end)
  T.test("a 256-entry grey ramp on 16-bit data: 0-255 on the ramp, everything above black", function()
    local ramp = {}
    for i = 0, 255 do ramp[i + 1] = i * 0x010101 end
    local t = open("lut_grey16.tif")
    T.eq(t:ReadWithLUT(ramp), true)
    expect_picture(t, ramp, { 0, 0, W, H }, 1, 16)
    T.eq((t.Pict:Pixel(0, 0)), 0, "sample 0")
  end)
  T.test("the identity ramp reproduces an 8-bit RGB image", function()
    local ramp = {}
    for i = 0, 255 do ramp[i + 1] = i * 0x010101 end
    local t = open("lut_rgb8.tif")
    T.eq(t:ReadWithLUT(ramp), true)
    local r, g, b = t.Pict:Pixel(7, 3)
    T.eq(r, sample(7, 3, 0, 8)); T.eq(g, sample(7, 3, 1, 8)); T.eq(b, sample(7, 3, 2, 8))
  end)
  T.test("a palette image goes through the program's table, not its colour map", function()
    local t = open("lut_palette8.tif")
    T.eq(t:ReadWithLUT(HASH), true)
    expect_picture(t, HASH, { 0, 0, W, H }, 1, 8)
  end)
  T.test("entries past 65,535 are ignored", function()
    local long = {}
    for i = 1, 70000 do long[i] = 0xFFFFFF end
    local t = open("lut_grey8.tif")
    T.eq(t:ReadWithLUT(long), true)
    T.eq((t.Pict:Pixel(3, 3)), 255)
  end)
end)

T.group("Refusals", function()
  local function refused(name, ...)
    local t = open(name)
    t.Pict = NewPicture(1, 1)
    T.eq(t:ReadWithLUT(HASH, ...), false, name)
    T.eq(t.Pict, nil, name .. " Pict")
  end
  T.test("4-bit, 1-bit and two-sample images", function()
    refused("lut_grey4.tif")
    refused("bw_none_fill1_photo0.tif")
    refused("lut_grey8_alpha.tif")
  end)
  T.test("three samples in separate planes", function() refused("lut_rgb8_separate.tif") end)
  T.test("rectangles one pixel past the edge, negative or empty", function()
    refused("lut_grey8.tif", 1, 0, W, H)
    refused("lut_grey8.tif", 0, 1, W, H)
    refused("lut_grey8.tif", -1, 0, 2, 2)
    refused("lut_grey8.tif", 0, 0, 0, 2)
  end)
  T.test("nothing open", function()
    local t = TiffPictureTQV()
    T.eq(t:ReadWithLUT(HASH), false)
    T.eq(t:ReadWithLUT(HASH, 0, 0, 1, 1), false)
  end)
  T.test("closing the file at the first yield ends the read", function()
    local t = open("lut_rgb16.tif")
    t.YieldTicks = 1
    host.onYield(function() t:Close() end)
    T.eq(t:ReadWithLUT(HASH), false)
    host.onYield(nil)
    T.eq(t.Pict, nil)
  end)
end)

T.finish()
