-- ReadRGB and TIFFStringToPictureTQV of 8-bit R, G, B with a fourth sample, against values
-- derived by hand: every colour value meets every alpha value (pipe_images: pixel (x, y) has
-- R = x mod 256, G = 255 - R, B = (7x + y) mod 256 and the fourth sample y), in rows of 257
-- pixels, in strips and tiles.
--
-- Unassociated alpha is premultiplied as libtiff rounds, (v * a + 127) / 255; associated alpha
-- is taken as it stands, and so is a fourth sample whose kind the file leaves unspecified (libtiff
-- reads it as associated alpha). The mask is 255 - alpha. JPEG is lossy, so its files are
-- checked against libtiff's own TIFFReadRGBAImage of them instead.
--
-- arg[1] is the pipe_images tool, arg[2] the back end's name.
local T = require("testlib")
package.path = debug.getinfo(1, "S").source:match("^@(.*/)") .. "?.lua;" .. package.path
local P = require("pipe_common")

P.images(arg, "pipe_alpha")

local W, H = 257, 256

local function samples(x, y) return x % 256, 255 - x % 256, (7 * x + y) % 256, y end

local KINDS = {
  unassociated = function(x, y)
    local r, g, b, a = samples(x, y)
    local function times(v) return (v * a + 127) // 255 end
    return times(r), times(g), times(b), 255 - a
  end,
  associated = function(x, y)
    local r, g, b, a = samples(x, y)
    return r, g, b, 255 - a
  end,
}

local FILES = {
  { "alpha_unassoc.tif", "unassociated" },
  { "alpha_unassoc_tiled.tif", "unassociated" },
  { "alpha_assoc.tif", "associated" },
  { "alpha_unspecified.tif", "associated" },
}

local function check(pict, mask, want, what)
  T.expect_pixels(pict, W, H, function(x, y)
    local r, g, b = want(x, y)
    return r, g, b
  end, what .. " colour", 3)
  T.expect_pixels(mask, W, H, function(x, y)
    local v = select(4, want(x, y))
    return v, v, v
  end, what .. " mask", 3)
end

T.group("8-bit RGB with a fourth sample", function()
  for _, file in ipairs(FILES) do
    local name, kind = file[1], file[2]
    T.test(name .. ": ReadRGB", function()
      local t = P.open(name)
      T.eq(t:ReadRGB(), true, "ReadRGB")
      check(t.Pict, t.Mask, KINDS[kind], name)
      t:Close()
    end)
    T.test(name .. ": TIFFStringToPictureTQV", function()
      local picture = TIFFStringToPictureTQV(T.read_bytes(P.path(name)))
      T.truthy(picture, "a picture")
      check(picture, picture.Mask, KINDS[kind], name)
    end)
  end
end)

-- libtiff's raster holds R, G, B premultiplied and A, bottom row first.
local function from_raster(name)
  local w, h, raw = P.rgba(P.path(name))
  T.eq(w .. "x" .. h, W .. "x" .. H, name .. ": raster size")
  return function(x, y)
    local r, g, b, a = raw:byte((H - 1 - y) * W * 4 + x * 4 + 1, (H - 1 - y) * W * 4 + x * 4 + 4)
    return r, g, b, 255 - a
  end
end

T.group("8-bit RGB with unassociated alpha, JPEG", function()
  for _, name in ipairs({ "alpha_jpeg.tif", "alpha_jpeg_tiled.tif" }) do
    local want = from_raster(name)
    T.test(name .. ": ReadRGB", function()
      local t = P.open(name)
      T.eq(t:ReadRGB(), true, "ReadRGB")
      check(t.Pict, t.Mask, want, name)
      t:Close()
    end)
    T.test(name .. ": TIFFStringToPictureTQV", function()
      local picture = TIFFStringToPictureTQV(T.read_bytes(P.path(name)))
      T.truthy(picture, "a picture")
      check(picture, picture.Mask, want, name)
    end)
  end
end)

T.finish()
