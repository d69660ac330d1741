-- In-memory TIFFs: OpenString, CreateString, InputBuffer, OutputBuffer and the two globals.
-- Runs on every picture back end.
local T = require("testlib")
local H = require("picture_helpers")

local config = host.config()
local BINARY = 0xFFFF
local MiB = 1048576

local function colour(x, y) return (x * 23) % 256, (y * 41) % 256, (x + y) % 256 end
local function mask_value(x, y) return (x * 9 + y * 70) % 256 end

local counter = 0
local function tmp(name)
  counter = counter + 1
  return T.tmpfile(string.format("picture_streams_%s_%d_%s", config.app .. config.desktopDepth, counter, name))
end

-- A TIFF made by WriteRGB: in memory (the OutputBuffer after Close), or, given a path, in that
-- file (its bytes).
local function tiff_bytes(w, h, masked, path)
  local t = TiffPictureTQV()
  if path then
    T.eq(t:Create(FolderItem(path)), true, "Create")
  else
    T.eq(t:CreateString(0), true, "CreateString")
  end
  t.Pict = T.picture(w, h, colour)
  if masked then t.Mask = H.grey(w, h, mask_value) end
  T.eq(t:WriteRGB(), true, "WriteRGB")
  t:Close()
  return path and T.read_bytes(path) or t.OutputBuffer
end

local function expect_masked(pict, mask, w, h)
  T.expect_pixels(mask, w, h, function(x, y) local v = 255 - mask_value(x, y); return v, v, v end, "Mask")
  T.expect_pixels(pict, w, h, function(x, y)
    local r, g, b = colour(x, y)
    local a = mask_value(x, y)
    return H.premultiplied(r, a), H.premultiplied(g, a), H.premultiplied(b, a)
  end, "Pict")
end

T.group("CreateString and OutputBuffer", function()
  T.test("nil before anything is written", function()
    local t = TiffPictureTQV()
    T.eq(t.OutputBuffer, nil, "new session")
    T.eq(t:CreateString(0, ""), false, "an empty mode is refused before libtiff writes")
    T.eq(t.OutputBuffer, nil, "buffer without data")
  end)
  T.test("libtiff writes the header when the stream opens", function()
    local t = TiffPictureTQV()
    T.eq(t:CreateString(-5), true)
    local header = t.OutputBuffer
    T.eq(#header, 8)
    T.truthy(tostring(header):match("^II%*%z") or tostring(header):match("^MM%z%*"), "a TIFF header")
    T.eq(header.encoding, BINARY)
  end)
  T.test("the bytes equal those of the same image written to a file", function()
    for _, masked in ipairs({ false, true }) do
      local memory = tiff_bytes(9, 7, masked)
      T.eq(memory.encoding, BINARY)
      T.eq(tostring(memory), tiff_bytes(9, 7, masked, tmp("same.tif")), "masked " .. tostring(masked))
    end
  end)
  T.test("an image several MiB long: grown in steps, every byte in place, nothing beyond", function()
    -- 1,100 x 1,000 x 3 bytes of rows: the buffer grows three times while rows are written, and
    -- the directory is appended at the end of the data (a seek to the end lands there, not at
    -- the end of the allocation), so the lengths match only if both hold.
    local memory = tiff_bytes(1100, 1000, false)
    T.truthy(#memory > 3 * MiB, "larger than three growth steps")
    T.eq(tostring(memory), tiff_bytes(1100, 1000, false, tmp("same.tif")))
  end)
  T.test("OutputBuffer is a copy: later writes do not change it, and it survives Close", function()
    local t = TiffPictureTQV()
    T.eq(t:CreateString(0), true)
    local early = t.OutputBuffer
    t.Pict = T.picture(4, 4, colour)
    T.eq(t:WriteRGB(), true)
    t:Close()
    T.eq(#early, 8)
    T.truthy(#t.OutputBuffer > 4 * 4 * 3, "the whole TIFF after Close")
  end)
  T.test("CreateString releases the held pictures", function()
    local t = TiffPictureTQV()
    t.Pict, t.Mask = T.picture(2, 2, colour), T.picture(2, 2, colour)
    T.eq(t:CreateString(100, "w"), true)
    T.eq(t.Pict, nil); T.eq(t.Mask, nil)
  end)
end)

T.group("OpenString and InputBuffer", function()
  T.test("a TIFF in a string reads like the file; InputBuffer is the very string", function()
    local data = tiff_bytes(6, 5, true)
    local t = TiffPictureTQV()
    T.eq(t:OpenString(data), true)
    T.truthy(t.InputBuffer == data, "the same string")
    T.eq(t:ReadRGB(), true)
    expect_masked(t.Pict, t.Mask, 6, 5)
    t:Close()
    T.truthy(t.InputBuffer == data, "kept after Close")
  end)
  T.test("Mode \"r\" reads as OpenString(data); an empty or writing mode fails", function()
    local data = tiff_bytes(3, 2, false)
    local t = TiffPictureTQV()
    T.eq(t:OpenString(data, "r"), true)
    T.eq(t:ReadRGB(), true)
    T.expect_pixels(t.Pict, 3, 2, colour, "Pict")
    T.eq(t:OpenString(data, ""), false, "empty mode")
    T.eq(t:OpenString(data, "w"), false, "a write mode on a read stream")
  end)
  T.test("data that is not a TIFF fails with an Error event", function()
    local t = TiffPictureTQV()
    local errors = 0
    t.Error = function() errors = errors + 1 end
    T.eq(t:OpenString("this is not a TIFF file"), false)
    T.truthy(errors > 0)
    T.eq(t:ReadRGB(), false, "nothing open")
  end)
  T.test("every truncation of a TIFF fails or reads safely", function()
    local data = tostring(tiff_bytes(5, 4, true))
    local t = TiffPictureTQV()
    for n = 0, #data - 1, 7 do
      if t:OpenString(String(data:sub(1, n), BINARY)) then t:ReadRGB() end
    end
    T.eq(t:OpenString(String(data, BINARY)), true, "the whole data")
    T.eq(t:ReadRGB(), true)
  end)
end)

T.group("global conversions", function()
  T.test("TIFFStringToPictureTQV: the picture with its mask attached", function()
    local p = TIFFStringToPictureTQV(tiff_bytes(6, 4, true))
    expect_masked(p, p.Mask, 6, 4)
  end)
  T.test("TIFFStringToPictureTQV without alpha: an opaque mask", function()
    local p = TIFFStringToPictureTQV(tiff_bytes(3, 3, false))
    T.expect_pixels(p, 3, 3, colour, "picture")
    T.expect_pixels(p.Mask, 3, 3, function() return 0, 0, 0 end, "mask")
  end)
  T.test("TIFFStringToPictureTQV of an empty string or of no TIFF is nil", function()
    T.eq(TIFFStringToPictureTQV(""), nil)
    T.eq(TIFFStringToPictureTQV("II*\0garbage"), nil)
  end)
  T.test("TIFFStringToTiffPictureTQV: a session opened on the data", function()
    local data = tiff_bytes(5, 3, true)
    local t = TIFFStringToTiffPictureTQV(data)
    T.truthy(t, "a session")
    T.truthy(t.InputBuffer == data, "on the very string")
    T.eq(t.Pict, nil, "no pixels read yet")
    T.eq(t:ReadRGB(), true)
    expect_masked(t.Pict, t.Mask, 5, 3)
    T.eq(TIFFStringToTiffPictureTQV("no TIFF"), nil)
  end)
end)

T.finish()
