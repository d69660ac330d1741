-- RGBA memory import: ReadRGB(ErrorMessage) and ReadRGBMemoryBegin / Step / End against
-- libtiff's own TIFFReadRGBAImage of the same file (pipe_images rgba: bottom row first, bytes
-- R, G, B, A), on strips and tiles of 1, 8 and 16 bits, in flipped orientations, and on images
-- wider than a picture can be.
--
-- arg[1] is the pipe_images tool, arg[2] the back end's name.
local T = require("testlib")
package.path = debug.getinfo(1, "S").source:match("^@(.*/)") .. "?.lua;" .. package.path
local P = require("pipe_common")

local images = P.images(arg, "pipe_rgba_memory")
local ASCII = 0x600

-- Files, their orientation tag, the rectangles stepped through them, and the file whose libtiff
-- rendering is the reference when it is not the file itself. The 8-bit contiguous ones and
-- tile-aligned columns are placed by libtiff itself; 1- and 16-bit strips, separate planes and
-- off-tile columns are rendered in full-width bands by the plugin. All must agree.
local FILES = {
  { "rgba_wide8.tif", 1, { { 32760, 0, 20, 3 }, { 0, 1, 40000, 2 }, { 39990, 2, 10, 1 }, { 12345, 0, 7, 3 } } },
  { "rgba_wide16.tif", 1, { { 32760, 0, 20, 3 }, { 0, 1, 40000, 2 }, { 39990, 2, 10, 1 }, { 0, 0, 9, 2 } } },
  { "rgba_wide1.tif", 1, { { 32761, 3, 30, 5 }, { 0, 0, 17, 9 }, { 40000, 8, 3, 1 }, { 5, 1, 39990, 2 } } },
  { "rgba_tiled8.tif", 1, { { 64, 64, 64, 64 }, { 37, 50, 100, 90 }, { 250, 100, 50, 50 }, { 0, 0, 300, 150 } } },
  { "rgba_tiled16.tif", 1, { { 64, 64, 64, 64 }, { 37, 50, 100, 90 }, { 250, 100, 50, 50 }, { 128, 0, 5, 150 } } },
  -- libtiff's own grey and palette packers skip the columns a row leaves out one byte a pixel,
  -- whatever the pixel's size, so its rendering of these tiled images is wrong in their partial
  -- last tile column: their references are the same pixels written in strips.
  { "rgba_tiledgrey16.tif", 1, { { 0, 0, 7, 3 }, { 64, 64, 64, 64 }, { 128, 10, 5, 100 }, { 37, 50, 100, 90 },
                                 { 250, 0, 50, 150 } }, "rgba_tiledgrey16_strips.tif" },
  { "rgba_grey16.tif", 1, { { 3, 2, 17, 11 }, { 49, 19, 1, 1 }, { 0, 5, 50, 4 } } },
  -- Rectangles narrower than the image meet the same skip in strips.
  { "rgba_grey8_extra.tif", 1, { { 2, 1, 3, 2 }, { 0, 0, 10, 9 } } },
  { "rgba_palette8_extra.tif", 1, { { 2, 1, 3, 2 }, { 0, 3, 22, 6 } } },
  { "rgba_tiledgrey8_extra.tif", 1, { { 64, 0, 50, 70 }, { 0, 10, 100, 20 }, { 130, 0, 20, 70 } },
    "rgba_tiledgrey8_extra_strips.tif" },
  { "rgba_tiledpalette8_extra.tif", 1, { { 64, 0, 50, 70 }, { 120, 5, 30, 60 } }, "rgba_tiledpalette8_extra_strips.tif" },
  -- Subsampled YCbCr has no whole scanlines inside a strip or tile: steps that start inside one.
  { "rgba_ycbcr_tiled.tif", 1, { { 0, 3, 16, 13 }, { 5, 17, 30, 20 }, { 16, 16, 16, 16 }, { 1, 40, 49, 1 } } },
  { "rgba_ycbcr_strips.tif", 1, { { 0, 3, 16, 13 }, { 5, 17, 30, 20 }, { 0, 5, 50, 5 }, { 3, 1, 7, 39 } } },
  { "rgba_separate8.tif", 1, { { 3, 2, 17, 11 }, { 49, 19, 1, 1 } } },
  { "rgba_botright8.tif", 3, { { 3, 2, 17, 11 }, { 0, 0, 50, 20 } } },
  { "rgba_botright16.tif", 3, { { 3, 2, 17, 11 }, { 0, 0, 50, 20 } } },
  { "rgba_topright16.tif", 2, { { 3, 2, 17, 11 }, { 40, 19, 10, 1 } } },
  { "lut_rgb16.tif", 1, { { 1, 1, 20, 7 } } },
  { "bw_g4_fill2_photo1.tif", 1, { { 3, 5, 21, 7 } } },
}

local function flips(orientation)
  local rows = orientation == 1 or orientation == 2 or orientation == 5 or orientation == 6
  local columns = orientation == 2 or orientation == 3 or orientation == 6 or orientation == 7
  return rows, columns
end

-- The bytes a block for the rectangle must hold, cut from the whole reference raster: file rows
-- y .. y + h - 1 and columns x .. x + w - 1, mirrored as libtiff mirrors the whole image.
local function expected_rect(ref, r, orientation)
  local rows, columns = flips(orientation)
  local x, y, w, h = r[1], r[2], r[3], r[4]
  local parts = {}
  for k = 0, h - 1 do
    local R = rows and (ref.h - y - h + k) or (y + k)
    local C = columns and (ref.w - x - w) or x
    local at = (R * ref.w + C) * 4
    parts[#parts + 1] = ref.raw:sub(at + 1, at + w * 4)
  end
  return table.concat(parts)
end

local function reference(name)
  local w, h, raw = P.rgba(images .. "/" .. name)
  return { w = w, h = h, raw = raw }
end

local function same_bytes(block, want, what)
  T.truthy(block, what .. ": a block")
  T.eq(block.Size, #want, what .. ": size")
  if block:Bytes(0, #want) ~= want then
    local got = block:Bytes(0, #want)
    local i = 1
    while got:byte(i) == want:byte(i) do i = i + 1 end
    T.fail(string.format("%s: first difference at byte %d (pixel %d): %d, libtiff %d", what, i - 1,
                         (i - 1) // 4, got:byte(i), want:byte(i)), 2)
  end
end

local open = P.open

T.group("Whole image", function()
  for _, file in ipairs(FILES) do
    T.test(file[1], function()
      local ref = reference(file[4] or file[1])
      local t = open(file[1])
      local message = Ref(nil)
      local block = t:ReadRGB(message)
      same_bytes(block, ref.raw, file[1])
      T.eq(tostring(message.value), "", "ErrorMessage after success")
      T.eq(message.value.encoding, ASCII, "ErrorMessage encoding")
    end)
  end
  T.test("2 x 2: the bottom row first; the red top-left pixel at byte 8", function()
    local t = open("rgba_2x2.tif")
    local block = t:ReadRGB(Ref(nil))
    T.eq(block:Bytes(0, 4), string.char(0, 0, 255, 255), "bottom-left blue")
    T.eq(block:Bytes(8, 4), string.char(255, 0, 0, 255), "top-left red")
    T.eq(block:Bytes(12, 4), string.char(0, 255, 0, 255), "top-right green")
  end)
  T.test("an image libtiff cannot render: nil with libtiff's text; a string held before is let go", function()
    local t = open("rgba_grey64float.tif")
    local message = Ref(String("old"))
    T.eq(t:ReadRGB(message), nil)
    T.truthy(#tostring(message.value) > 0, "libtiff's text")
    T.eq(message.value.encoding, ASCII)
  end)
  T.test("nothing open: nil, and ErrorMessage nil", function()
    local t = TiffPictureTQV()
    local message = Ref(String("old"))
    T.eq(t:ReadRGB(message), nil)
    T.eq(message.value, nil)
  end)
end)

-- The pictures come from the same rendering: a tiled file's partial last tile column must show
-- the pixels of its strip twin there too, picture and mask.
T.group("Pictures of tiled grey and palette images", function()
  local function same_picture(pict, mask, ref, what)
    T.eq(pict.Width .. "x" .. pict.Height, ref.w .. "x" .. ref.h, what .. ": size")
    for y = 0, ref.h - 1 do
      for x = 0, ref.w - 1 do
        local at = ((ref.h - 1 - y) * ref.w + x) * 4 + 1
        local r, g, b, a = ref.raw:byte(at, at + 3)
        local pr, pg, pb = pict:Pixel(x, y)
        local mr = mask:Pixel(x, y)
        if pr ~= r or pg ~= g or pb ~= b or mr ~= 255 - a then
          T.fail(string.format("%s (%d, %d): %d,%d,%d mask %d; strips %d,%d,%d alpha %d", what, x, y, pr, pg,
                               pb, mr, r, g, b, a), 2)
        end
      end
    end
  end
  for _, file in ipairs(FILES) do
    if file[4] then
      T.test(file[1], function()
        local ref = reference(file[4])
        local t = open(file[1])
        T.eq(t:ReadRGB(), true, "ReadRGB")
        same_picture(t.Pict, t.Mask, ref, file[1] .. " ReadRGB")
        t:Close()
        local picture = TIFFStringToPictureTQV(T.read_bytes(P.path(file[1])))
        T.truthy(picture, "a picture")
        same_picture(picture, picture.Mask, ref, file[1] .. " TIFFStringToPictureTQV")
      end)
    end
  end
end)

T.group("Begin, Step, End", function()
  for _, file in ipairs(FILES) do
    T.test(file[1] .. " rectangles", function()
      local ref = reference(file[4] or file[1])
      local t = open(file[1])
      local message = Ref(nil)
      T.eq(t:ReadRGBMemoryBegin(message), true)
      T.eq(tostring(message.value), "")
      for _, r in ipairs(file[3]) do
        same_bytes(t:ReadRGBMemoryStep(r[1], r[2], r[3], r[4]), expected_rect(ref, r, file[2]),
                   file[1] .. " " .. table.concat(r, ","))
      end
      same_bytes(t:ReadRGBMemoryStep(0, 0, ref.w, ref.h), ref.raw, file[1] .. " whole")
      t:ReadRGBMemoryEnd()
    end)
  end
  T.test("two Steps of one rectangle are equal", function()
    local t = open("rgba_tiled16.tif")
    T.eq(t:ReadRGBMemoryBegin(Ref(nil)), true)
    local a, b = t:ReadRGBMemoryStep(37, 50, 100, 90), t:ReadRGBMemoryStep(37, 50, 100, 90)
    T.eq(a:Bytes(0), b:Bytes(0))
    t:ReadRGBMemoryEnd()
  end)
  T.test("Step before Begin, after End, and after a failed Begin gives nil", function()
    local t = open("rgba_tiled8.tif")
    T.eq(t:ReadRGBMemoryStep(0, 0, 1, 1), nil, "before Begin")
    T.eq(t:ReadRGBMemoryBegin(Ref(nil)), true)
    T.truthy(t:ReadRGBMemoryStep(0, 0, 1, 1), "inside Begin/End")
    t:ReadRGBMemoryEnd()
    T.eq(t:ReadRGBMemoryStep(0, 0, 1, 1), nil, "after End")
    t:ReadRGBMemoryEnd()
    local u = open("rgba_grey64float.tif")
    local message = Ref(nil)
    T.eq(u:ReadRGBMemoryBegin(message), false)
    T.truthy(#tostring(message.value) > 0, "libtiff's text")
    T.eq(u:ReadRGBMemoryStep(0, 0, 1, 1), nil, "after a failed Begin")
  end)
  T.test("rectangles not inside the image give nil", function()
    local t = open("rgba_grey16.tif")
    T.eq(t:ReadRGBMemoryBegin(Ref(nil)), true)
    for _, r in ipairs({ { 1, 0, 50, 1 }, { 0, 1, 1, 20 }, { -1, 0, 1, 1 }, { 0, -1, 1, 1 }, { 0, 0, 0, 1 },
                         { 0, 0, 1, 0 }, { 50, 0, 1, 1 }, { 0, 0x7FFFFFFF, 1, 1 } }) do
      T.eq(t:ReadRGBMemoryStep(r[1], r[2], r[3], r[4]), nil, table.concat(r, ","))
    end
    t:ReadRGBMemoryEnd()
  end)
  T.test("a second Begin replaces the first; cleanup ends a state left held", function()
    local t = open("rgba_grey16.tif")
    T.eq(t:ReadRGBMemoryBegin(Ref(nil)), true)
    T.eq(t:ReadRGBMemoryBegin(Ref(nil)), true)
    T.truthy(t:ReadRGBMemoryStep(0, 0, 2, 2))
  end)
  T.test("after Close, or another file opened, Step gives nil", function()
    local t = open("rgba_grey16.tif")
    T.eq(t:ReadRGBMemoryBegin(Ref(nil)), true)
    t:Close()
    T.eq(t:ReadRGBMemoryStep(0, 0, 2, 2), nil, "closed")
    T.eq(t:Open(FolderItem(images .. "/rgba_tiled16.tif")), true)
    T.eq(t:ReadRGBMemoryStep(0, 0, 2, 2), nil, "another file")
    t:ReadRGBMemoryEnd()
    T.eq(t:ReadRGBMemoryBegin(Ref(nil)), true, "a new Begin on the new file")
    T.truthy(t:ReadRGBMemoryStep(64, 0, 2, 2))
    t:ReadRGBMemoryEnd()
  end)
  -- A handle opened in place of the old one may get its address and its directory offset, and a
  -- directory read again resets the decoder that Begin set up: the JPEG colour mode, here, whose
  -- rows have the same size either way at 1 x 1 subsampling (raw YCbCr came back as RGB).
  T.test("the same file opened again, the same page read again, or a field set: Step gives nil", function()
    local t = open("rgba_grey16.tif")
    T.eq(t:ReadRGBMemoryBegin(Ref(nil)), true)
    t:Close()
    T.eq(t:Open(FolderItem(images .. "/rgba_grey16.tif")), true)
    T.eq(t:ReadRGBMemoryStep(0, 0, 2, 2), nil, "opened again")
    local jpeg = TiffPictureTQV()
    T.truthy(jpeg:Open(FolderItem(T.testdata("pillow/tiff_strip_ycbcr_jpeg_1x1_sampling.tif"))))
    T.eq(jpeg:ReadRGBMemoryBegin(Ref(nil)), true)
    local before = jpeg:ReadRGBMemoryStep(0, 0, 4, 4)
    T.truthy(before, "stepped")
    T.eq(jpeg:ReadRGBMemoryStep(0, 0, 4, 4):Bytes(0), before:Bytes(0), "steps keep the state")
    T.truthy(jpeg:SetImageIndex(0, true))
    T.eq(jpeg:ReadRGBMemoryStep(0, 0, 4, 4), nil, "read again")
    T.eq(jpeg:ReadRGBMemoryBegin(Ref(nil)), true)
    T.eq(jpeg:ReadRGBMemoryStep(0, 0, 4, 4):Bytes(0), before:Bytes(0), "a new Begin")
    jpeg.ImageDescription = "set since Begin"
    T.eq(jpeg:ReadRGBMemoryStep(0, 0, 4, 4), nil, "a field set")
    jpeg:ReadRGBMemoryEnd()
  end)
  T.test("nothing open: Begin false with ErrorMessage nil", function()
    local t = TiffPictureTQV()
    local message = Ref(String("old"))
    T.eq(t:ReadRGBMemoryBegin(message), false)
    T.eq(message.value, nil)
    T.eq(t:ReadRGBMemoryStep(0, 0, 1, 1), nil)
    t:ReadRGBMemoryEnd()
  end)
end)

-- Every test file (made by other software, some of them damaged): the whole image, and a
-- full-width band from a third of the way down, against libtiff rendering the same rows in
-- another process. Common layouts are packed by the plugin itself and everything else, or
-- anything libtiff complains about, is left to libtiff; either way the bytes must be libtiff's.
-- Memory blocks do not depend on the picture back end, so one back end sweeps.
local function libtiff_rgba(path, row, rows)
  local out = P.path("sweep.raw")
  local band = row and string.format(" %d %d", row, rows) or ""
  local command = T.quote(P.tool) .. " rgba " .. T.quote(path) .. " " .. T.quote(out) .. band
  local pipe = assert(io.popen(command .. " 2>/dev/null"))
  local w, h = pipe:read("a"):match("^(%d+) (%d+)")
  if not pipe:close() or not w then return nil end
  return T.read_bytes(out), tonumber(w), tonumber(h)
end

if P.backend == "desktop32" then
  T.group("Every test file against libtiff", function()
    local rendered = 0
    for _, rel in ipairs(T.testdata_files()) do
      T.test(rel, function()
        local path = T.testdata(rel)
        local t = TiffPictureTQV()
        if not t:Open(FolderItem(path)) then return end
        local whole, w, h = libtiff_rgba(path)
        local block = t:ReadRGB(Ref(nil))
        if whole == nil then
          T.eq(block, nil, "libtiff renders nothing")
          return
        end
        same_bytes(block, whole, rel)
        rendered = rendered + 1
        -- Old-style JPEG decodes a band differently depending on what the handle read before
        -- (opening reads ahead), so its bands are not comparable across processes.
        local compression = Ref(0)
        T.eq(t:GetFieldDefaultedShort(259, compression), true, "Compression")
        if compression.value == 6 then return end
        local row, rows = h // 3, math.max(1, h // 2)
        local band = libtiff_rgba(path, row, rows)
        t:Close()
        T.eq(t:Open(FolderItem(path)), true, "reopened")
        T.eq(t:ReadRGBMemoryBegin(Ref(nil)), true, "Begin")
        local step = t:ReadRGBMemoryStep(0, row, w, rows)
        if band == nil then
          T.eq(step, nil, "libtiff renders no band")
        else
          same_bytes(step, band, rel .. " band")
        end
        t:ReadRGBMemoryEnd()
        t:Close()
      end)
    end
    T.test("the sweep rendered images", function()
      T.truthy(rendered > 200, "images rendered: " .. rendered)
    end)
  end)
end

T.finish()
