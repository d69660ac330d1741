-- Bilevel and grey export: WriteBW and WriteGray write Pict into a new file; libtiff's own
-- reading of the file (pipe_images dump, tiffinfo, tiffcp) is what is checked.
--
-- arg[1] is the pipe_images tool, arg[2] the back end's name.
local T = require("testlib")
package.path = debug.getinfo(1, "S").source:match("^@(.*/)") .. "?.lua;" .. package.path
local P = require("pipe_common")

P.images(arg, "pipe_export")

local function picture(rows)
  local p = NewPicture(#rows[1], #rows)
  for y, row in ipairs(rows) do
    for x, c in ipairs(row) do p:SetPixel(x - 1, y - 1, c[1], c[2], c[3]) end
  end
  return p
end

local files = 0
local function create(setup)
  files = files + 1
  local path = P.path("out" .. files .. ".tif")
  local t = TiffPictureTQV()
  T.eq(t:Create(FolderItem(path)), true, "Create")
  if setup then setup(t) end
  return t, path
end

local function expect_rows(info, rows, what)
  for y, row in ipairs(rows) do
    T.truthy(info.rows[y], what .. ": row " .. (y - 1) .. " readable")
    T.eq(table.concat(info.rows[y], ","), table.concat(row, ","), what .. ": row " .. (y - 1))
  end
end

-- ---- WriteBW ------------------------------------------------------------------------------

local K, W = { 0, 0, 0 }, { 255, 255, 255 }
local DARK, LIGHT = { 42, 42, 43 }, { 43, 43, 42 } -- sums 127 (black) and 128 (white)
-- Nine pixels: the ninth lands in bit 7 of the second byte.
local BW = {
  { DARK, LIGHT, W, K, W, K, K, W, W },
  { K, W, W, W, K, K, K, K, K },
}
-- Bytes of the rows with white as 1 (min-is-black) or black as 1 (min-is-white).
local WHITE_IS_ONE = { { 0x69, 0x80 }, { 0x70, 0x00 } }
local BLACK_IS_ONE = { { 0x96, 0x00 }, { 0x8F, 0x80 } }

T.group("WriteBW", function()
  T.test("defaults: min-is-black, uncompressed, 72 dpi; the threshold on the channel sum", function()
    local t, path = create()
    t.Pict = picture(BW)
    T.eq(t:WriteBW(), true)
    t:Close()
    local info = P.dump(path)
    T.eq(info.width, 9); T.eq(info.height, 2); T.eq(info.bps, 1); T.eq(info.spp, 1)
    T.eq(info.photometric, 1); T.eq(info.compression, 1); T.eq(info.fill, 1)
    T.eq(info.xres, 72); T.eq(info.yres, 72); T.eq(info.unit, 2)
    expect_rows(info, WHITE_IS_ONE, "min-is-black")
  end)
  T.test("rows of 150 pixels: every pixel's bit in place across wide rows, in both senses", function()
    -- Pixels on both sides of the threshold, in a pattern that repeats every 11 pixels so that
    -- no two runs of 8 or 64 pixels look alike.
    local SHADES = { K, W, DARK, LIGHT, { 128, 0, 0 }, { 0, 0, 127 }, { 40, 40, 48 }, { 255, 0, 0 } }
    local function shade(x, y) return SHADES[(x * 7 + y * 3 + (x // 11)) % #SHADES + 1] end
    local rows = {}
    for y = 1, 3 do
      rows[y] = {}
      for x = 1, 150 do rows[y][x] = shade(x - 1, y - 1) end
    end
    local function expected(white_bit)
      local out = {}
      for y = 1, 3 do
        out[y] = {}
        for i = 0, 18 do
          local byte = 0
          for k = 0, 7 do
            local c = rows[y][i * 8 + k + 1]
            local white = c ~= nil and c[1] + c[2] + c[3] >= 128
            if c ~= nil and white == (white_bit == 1) then byte = byte | (0x80 >> k) end
          end
          out[y][i + 1] = byte
        end
      end
      return out
    end
    for _, case in ipairs({ { 1, 1 }, { 0, 0 } }) do
      local photometric, white_bit = case[1], case[2]
      local t, path = create(function(t) t.Photometric = photometric end)
      t.Pict = picture(rows)
      T.eq(t:WriteBW(), true)
      t:Close()
      local info = P.dump(path)
      T.eq(info.width, 150)
      expect_rows(info, expected(white_bit), "photometric " .. photometric)
    end
  end)
  -- Caller settings that WriteBW keeps: the tag as libtiff reads it back, and the rows.
  local KEPT = {
    { name = "min-is-white set by the caller: black pixels are the 1 bits",
      set = { Photometric = 0 }, field = "photometric", value = 0, rows = BLACK_IS_ONE, what = "min-is-white" },
    { name = "Group 4 chosen by the caller is kept and readable by libtiff's tools",
      set = { Compression = 4 }, field = "compression", value = 4, rows = WHITE_IS_ONE, what = "Group 4",
      also = function(path)
        T.truthy(P.run("tiffinfo -D " .. T.quote(path)), "tiffinfo -D")
        local copy = P.path("g4_copy.tif")
        T.truthy(P.run("tiffcp -c none " .. T.quote(path) .. " " .. T.quote(copy)), "tiffcp")
        expect_rows(P.dump(copy), WHITE_IS_ONE, "tiffcp copy")
      end },
    { name = "FillOrder 2: the same pixels; libtiff reverses the bytes on disk",
      set = { FillOrder = 2 }, field = "fill", value = 2, rows = WHITE_IS_ONE, what = "fill order 2" },
    { name = "a caller's ImageLength is kept; the picture's rows are written",
      set = { Height = 5 }, field = "height", value = 5, rows = WHITE_IS_ONE, what = "first rows" },
  }
  for _, case in ipairs(KEPT) do
    T.test(case.name, function()
      local t, path = create(function(t) for k, v in pairs(case.set) do t[k] = v end end)
      t.Pict = picture(BW)
      T.eq(t:WriteBW(), true)
      t:Close()
      local info = P.dump(path)
      T.eq(info[case.field], case.value, case.field)
      expect_rows(info, case.rows, case.what)
      if case.also then case.also(path) end
    end)
  end
  T.test("Photometric 2 set by the caller: true, and no scanline written", function()
    local t, path = create(function(t) t.Photometric = 2 end)
    t.Pict = picture(BW)
    T.eq(t:WriteBW(), true)
    t:Close()
    -- The directory lacks strip offsets altogether: libtiff refuses to read such a file.
    T.eq(P.try_dump(path), nil)
  end)
  T.test("a caller's wider 8-bit image: rows padded with zeros past the picture's bits", function()
    local t, path = create(function(t) t.Width = 40; t.BitsPerSample = 8 end)
    t.Pict = picture(BW)
    T.eq(t:WriteBW(), true)
    t:Close()
    local info = P.dump(path)
    T.eq(info.width, 40); T.eq(info.bps, 8)
    T.eq(#info.rows[1], 40)
    T.eq(info.rows[1][1], 0x69); T.eq(info.rows[1][2], 0x80)
    for i = 3, 40 do T.eq(info.rows[1][i], 0, "padding byte " .. i) end
  end)
  T.test("no Pict, nothing open, or the file closed at the first yield: false", function()
    local t = create()
    T.eq(t:WriteBW(), false, "no Pict")
    local u = TiffPictureTQV()
    u.Pict = picture(BW)
    T.eq(u:WriteBW(), false, "nothing open")
    t.Pict = picture(BW)
    t.YieldTicks = 1
    host.onYield(function() t:Close() end)
    T.eq(t:WriteBW(), false, "closed at the first yield")
    host.onYield(nil)
  end)
end)

-- ---- WriteGray ----------------------------------------------------------------------------

local GREY = {
  { { 200, 10, 10 }, { 0, 255, 0 }, { 255, 0, 0 } },
  { { 17, 1, 2 }, { 128, 128, 128 }, { 1, 2, 3 } },
}
local RED = { { 200, 0, 255 }, { 17, 128, 1 } }

local function mapped(f)
  local out = {}
  for y, row in ipairs(RED) do
    out[y] = {}
    for x, v in ipairs(row) do out[y][x] = f(v) end
  end
  return out
end

local function write_grey(setup)
  local t, path = create(setup)
  t.Pict = picture(GREY)
  T.eq(t:WriteGray(), true)
  t:Close()
  return P.dump(path)
end

T.group("WriteGray", function()
  T.test("defaults: 8-bit min-is-black, the red channel unweighted", function()
    local info = write_grey()
    T.eq(info.width, 3); T.eq(info.height, 2); T.eq(info.bps, 8); T.eq(info.spp, 1)
    T.eq(info.photometric, 1); T.eq(info.compression, 1); T.eq(info.xres, 72); T.eq(info.unit, 2)
    expect_rows(info, RED, "8-bit")
  end)
  for _, case in ipairs({ { "min-is-white inverts", 0 }, { "Photometric 2 set by the caller inverts as well", 2 } }) do
    local name, photometric = case[1], case[2]
    T.test(name, function()
      local info = write_grey(function(t) t.Photometric = photometric end)
      T.eq(info.photometric, photometric)
      expect_rows(info, mapped(function(v) return 255 - v end), "inverted")
    end)
  end
  T.test("16 bits: V x 257, plain and inverted", function()
    local info = write_grey(function(t) t.BitsPerSample = 16 end)
    T.eq(info.bps, 16)
    expect_rows(info, mapped(function(v) return v * 257 end), "16-bit")
    T.eq(info.rows[1][1], 51400)
    info = write_grey(function(t) t.BitsPerSample = 16; t.Photometric = 0 end)
    expect_rows(info, mapped(function(v) return (255 - v) * 257 end), "16-bit inverted")
  end)
  T.test("BitsPerSample 4 stays 4 while 8-bit samples are written, one byte a pixel", function()
    local info = write_grey(function(t) t.BitsPerSample = 4 end)
    T.eq(info.bps, 4)
    -- A 3-pixel row of 4 bits is 2 bytes: libtiff keeps the first two samples' bytes.
    expect_rows(info, { { 200, 0 }, { 17, 128 } }, "4-bit rows")
  end)
  T.test("BitsPerSample 32: rows padded with zeros past the 8-bit samples", function()
    local info = write_grey(function(t) t.BitsPerSample = 32 end)
    T.eq(info.bps, 32)
    expect_rows(info, { { 200, 0, 255, 0, 0, 0, 0, 0, 0, 0, 0, 0 }, { 17, 128, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0 } },
                "32-bit rows")
  end)
  T.test("resolutions below 1 become 72; others are kept; a caller's compression is kept", function()
    local info = write_grey(function(t)
      t.HorizontalResolution = 0.5
      t.VerticalResolution = 300
      t.Compression = 5
    end)
    T.eq(info.xres, 72); T.eq(info.yres, 300); T.eq(info.compression, 5)
    expect_rows(info, RED, "LZW")
  end)
  T.test("no Pict or nothing open: false", function()
    local t = create()
    T.eq(t:WriteGray(), false)
    local u = TiffPictureTQV()
    u.Pict = picture(GREY)
    T.eq(u:WriteGray(), false)
  end)
end)

-- ---- Exports into an image read from the file ---------------------------------------------

-- A w x h grey picture: pixel (x, y) is base + x + w y (mod 256) in every channel.
local function ramp(w, h, base)
  local p = NewPicture(w, h)
  for y = 0, h - 1 do
    for x = 0, w - 1 do
      local v = (base + x + w * y) % 256
      p:SetPixel(x, y, v, v, v)
    end
  end
  return p
end
local function ramp_rows(w, h, base)
  local rows = {}
  for y = 1, h do
    rows[y] = {}
    for x = 1, w do rows[y][x] = (base + (x - 1) + w * (y - 1)) % 256 end
  end
  return rows
end

-- A new file holding one 8-bit grey image of w x h pixels in strips of `strip_rows` rows.
local function grey_file(w, h, strip_rows)
  local t, path = create(function(t) t.RowsPerStrip = strip_rows end)
  t.Pict = ramp(w, h, 1)
  T.eq(t:WriteGray(), true)
  t:Close()
  return path
end

-- The file opened for reading and writing; the messages of its Error events are collected.
local function rewrite(path)
  local t = TiffPictureTQV()
  local errors = {}
  t.Error = function(_, _, message) errors[#errors + 1] = tostring(message) end
  T.eq(t:Open(FolderItem(path), "r+"), true)
  return t, errors
end

T.group("Exports into an image read from the file", function()
  -- libtiff keeps the strip tables it read: rows of strips past their end were lost while the
  -- export answered true, and strip sizes that no longer fit the table's type made the directory
  -- unwritable at Close, which lost the whole file.
  local cases = {
    { what = "fewer rows", w = 6, h = 10, strip_rows = 1, pw = 6, ph = 4 },
    { what = "more rows", w = 6, h = 10, strip_rows = 1, pw = 6, ph = 12 },
    { what = "large strips before, small after", w = 100, h = 1000, strip_rows = 300, pw = 4, ph = 4 },
    { what = "the program's rows per strip", w = 6, h = 10, strip_rows = 10, pw = 6, ph = 10, set_rows = 1 },
  }
  for _, case in ipairs(cases) do
    T.test("another number of strips (" .. case.what .. "): false before any tag; the image stays", function()
      local path = grey_file(case.w, case.h, case.strip_rows)
      local before = P.dump(path)
      for _, export in ipairs({ "WriteRGB", "WriteGray", "WriteRGB with a mask" }) do
        local t, errors = rewrite(path)
        if case.set_rows then t.RowsPerStrip = case.set_rows end
        t.Pict = ramp(case.pw, case.ph, 7)
        if export == "WriteRGB with a mask" then t.Mask = ramp(case.pw, case.ph, 0) end
        T.eq(t[export:match("^%a+")](t), false, export)
        T.truthy(errors[1] and errors[1]:find("do not fit the strips of this image", 1, true), export .. ": message")
        T.eq(t.Width, case.w, export .. ": no tag set")
        t.RowsPerStrip = case.strip_rows
        t:Close()
        local after = P.dump(path)
        T.eq(after.height, case.h, export .. ": height")
        T.eq(after.spp, 1, export .. ": samples")
        expect_rows(after, before.rows, export)
      end
    end)
  end
  -- libtiff places the rows by the strips of one plane it counted when it read the image: rows
  -- made contiguous in as many strips as all the planes held were written past its strip buffer.
  T.test("separate planes, as many strips as the picture needs: false before any tag; the file stays", function()
    local t, path = create(function(n)
      n.Width, n.Height, n.BitsPerSample, n.SamplesPerPixel, n.Photometric = 4, 2, 8, 3, 2
      n.PlanarConfig, n.RowsPerStrip = 2, 1
    end)
    for p = 0, 2 do assign(t, "Scanlines", MemoryBlock(8), 0, 2, p) end
    t:Close()
    local before = T.read_bytes(path)
    for _, export in ipairs({ "WriteRGB", "WriteGray" }) do
      local u, errors = rewrite(path)
      u.Pict = ramp(4, 6, 0) -- 6 strips of one row, as the 3 planes of 2 rows
      T.eq(u[export](u), false, export)
      T.truthy(errors[1] and errors[1]:find("laid out in separate planes", 1, true), export .. ": message")
      u:Close()
      T.eq(T.read_bytes(path) == before, true, export .. ": file unchanged")
    end
  end)
  T.test("a colour map of another depth: false before any tag; the image stays", function()
    local path = P.path("palette_4bit.tif")
    T.write_bytes(path, T.read_bytes(T.testdata("libtiff/images/palette-1c-4b.tiff")))
    local before = P.dump(path)
    local t, errors = rewrite(path)
    t.Pict = ramp(before.width, before.height, 0)
    T.eq(t:WriteRGB(), false)
    T.truthy(errors[1] and errors[1]:find("colour map", 1, true), "message")
    t:Close()
    local after = P.dump(path)
    T.eq(after.photometric, 3); T.eq(after.bps, 4); T.eq(after.spp, 1)
    expect_rows(after, before.rows, "palette")
  end)
  T.test("a JPEG image: the new rows decode as in a new file, not with the old image's tables", function()
    local file = T.testdata("pillow/hopper_jpg.tif") -- JPEG RGB with tables written by other software
    local source = P.path("jpeg_rewritten.tif")
    T.write_bytes(source, T.read_bytes(file))
    local r = TiffPictureTQV()
    T.eq(r:Open(FolderItem(file)), true)
    T.eq(r:ReadRGB(), true)
    local picture, rows = r.Pict, r.RowsPerStrip
    local t, errors = rewrite(source)
    t.Pict = picture
    T.eq(t:WriteRGB(), true)
    t:Close()
    local fresh, fresh_path = create(function(n) n.Compression, n.RowsPerStrip = 7, rows end)
    fresh.Pict = picture
    T.eq(fresh:WriteRGB(), true)
    fresh:Close()
    local a, b = P.open("jpeg_rewritten.tif"), TiffPictureTQV()
    T.eq(b:Open(FolderItem(fresh_path)), true)
    T.eq(a:ReadRGB(), true); T.eq(b:ReadRGB(), true)
    T.expect_pixels(a.Pict, picture.Width, picture.Height, function(x, y) return b.Pict:Pixel(x, y) end, "rewritten")
    T.eq(#errors, 0)
  end)
  -- libtiff fails such an export at its first row, after the new size and layout were set:
  -- Close then wrote them over the old image, or could not write the directory at all, and the
  -- file no longer opened.
  local refusals = {
    { file = "image-tiff/libtiffpic/smallliz.tif", exports = { "WriteRGB", "WriteRGB with a mask", "WriteGray" },
      message = "OJPEG encoding not supported" },
    { file = "image-tiff/libtiffpic/text.tif", exports = { "WriteBW", "WriteGray" },
      message = "ThunderScan scanline encoding is not implemented" },
  }
  for _, case in ipairs(refusals) do
    T.test("a codec without an encoder (" .. case.file:match("[^/]+$") .. "): false; the file reads as before",
      function()
        local original = TiffPictureTQV()
        T.eq(original:Open(FolderItem(T.testdata(case.file))), true)
        T.eq(original:ReadRGB(), true)
        for _, export in ipairs(case.exports) do
          local path = P.path("no_encoder.tif")
          T.write_bytes(path, T.read_bytes(T.testdata(case.file)))
          local t, errors = rewrite(path)
          t.Software = "set before the export"
          -- The image's size keeps its number of strips.
          t.Pict = ramp(original.Width, original.Height, 0)
          if export == "WriteRGB with a mask" then t.Mask = ramp(original.Width, original.Height, 9) end
          T.eq(t[export:match("^%a+")](t), false, export)
          T.truthy(table.concat(errors, "\n"):find(case.message, 1, true), export .. ": message")
          -- The directory is the file's again, without what was set in it since.
          T.eq(t.Width, original.Width, export .. ": width")
          T.eq(tostring(t.Software), tostring(original.Software), export .. ": software")
          local reported = #errors
          t:Close()
          T.eq(#errors, reported, export .. ": no error at Close")
          local after = TiffPictureTQV()
          T.eq(after:Open(FolderItem(path)), true, export .. ": opens")
          T.eq(after:ReadRGB(), true, export .. ": reads")
          T.expect_pixels(after.Pict, original.Width, original.Height,
            function(x, y) return original.Pict:Pixel(x, y) end, export)
          after:Close()
        end
        original:Close()
      end)
  end
  -- libtiff had begun the strip when the codec refused the first row; reading the directory
  -- again left its ending to the image's LZW, which had begun nothing (libtiff's assertion
  -- stopped the process at the next row).
  T.test("a compression without an encoder refused, then the image's LZW: the picture is written", function()
    for _, compression in ipairs({ 255, 32809, 32766 }) do
      local lzw, path = create(function(n) n.Compression, n.RowsPerStrip = 5, 1 end)
      lzw.Pict = ramp(5, 3, 1)
      T.eq(lzw:WriteGray(), true)
      lzw:Close()
      local t, errors = rewrite(path)
      t.Compression, t.Pict = compression, ramp(5, 3, 60)
      T.eq(t:WriteGray(), false, compression)
      T.eq(t.Compression, 5, compression .. ": the file's compression again")
      T.eq(t:WriteGray(), true, compression .. ": then with LZW")
      t:Close()
      T.eq(#errors, 1, compression .. ": only the refusal")
      local info = P.dump(path)
      T.eq(info.compression, 5, compression .. ": compression")
      expect_rows(info, ramp_rows(5, 3, 60), compression)
    end
  end)
  T.test("the same number of strips: the picture replaces the image", function()
    local path = grey_file(6, 10, 5)
    local t, errors = rewrite(path)
    t.Pict = ramp(9, 8, 40) -- strips of 5 and 3 rows
    T.eq(t:WriteGray(), true)
    t:Close()
    T.eq(#errors, 0)
    local info = P.dump(path)
    T.eq(info.width, 9); T.eq(info.height, 8)
    expect_rows(info, ramp_rows(9, 8, 40), "rewritten")
  end)
  T.test("over four samples or floating-point samples: the file reads back", function()
    -- A four-sample image written with a mask, and a 32-bit floating-point grey image.
    local rgba, path = create()
    rgba.Pict, rgba.Mask = ramp(4, 3, 0), ramp(4, 3, 100)
    T.eq(rgba:WriteRGB(), true)
    rgba:Close()
    local float, float_path = create()
    float.Width, float.Height, float.BitsPerSample = 4, 3, 32
    T.eq(float:SetFieldInteger(339, 3), true, "SampleFormat IEEE floating point")
    float.SamplesPerPixel, float.Photometric, float.RowsPerStrip = 1, 1, 1
    for y = 0, 2 do assign(float, "Scanline", MemoryBlock(16), y) end
    float:Close()
    -- WriteGray keeps the image's photometric interpretation: the program makes it grey first.
    local cases = { { path, "WriteRGB", 3 }, { path, "WriteGray", 1, 1 }, { float_path, "WriteRGB", 3 } }
    for _, case in ipairs(cases) do
      local file, export, samples, photometric = case[1], case[2], case[3], case[4]
      local name = "over_" .. export .. "_" .. samples .. "_" .. (file == path and "rgba" or "float") .. ".tif"
      local source = P.path(name)
      T.write_bytes(source, T.read_bytes(file))
      local t, errors = rewrite(source)
      if photometric then t.Photometric = photometric end
      t.Pict = ramp(4, 3, 50)
      T.eq(t[export](t), true, export)
      t:Close()
      T.eq(#errors, 0, export .. ": no error")
      local info = P.dump(source)
      T.eq(info.spp, samples, export .. ": samples")
      T.eq(info.extra, 0, export .. ": no extra samples")
      T.truthy(info.format == 0 or info.format == 1, export .. ": unsigned samples")
      local r = P.open(name)
      T.eq(r:ReadRGB(), true, export .. ": reads back")
      T.expect_pixels(r.Pict, 4, 3, function(x, y)
        local v = 50 + x + 4 * y
        return v, v, v
      end, export)
    end
  end)
  T.test("BitsPerSample changed over a transfer function: the function is dropped with a warning", function()
    local path = P.path("transfer_grey8.tif")
    T.eq(P.dump(path).transfer, 1)
    local t, errors = rewrite(path)
    local warnings = {}
    t.Warning = function(_, _, message) warnings[#warnings + 1] = tostring(message) end
    t.BitsPerSample = 16 -- the function has 256 entries; a 16-bit one would have 65,536
    T.eq(t.BitsPerSample, 16)
    T.truthy(warnings[1] and warnings[1]:find("TransferFunction", 1, true), "warning")
    t:Close()
    T.eq(#errors, 0)
    local info = P.dump(path)
    T.eq(info.bps, 16); T.eq(info.transfer, 0)
  end)
end)

T.finish()
