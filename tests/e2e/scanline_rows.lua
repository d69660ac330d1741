-- Scanlines: single rows and runs read and written as libtiff's scanline interface has them.
local T = require("testlib")
local H = require("tags_helpers")

local W, ROWS = 6, 4
local path = H.write_pages(T.tmpfile("scanline_rows.tif"), { { w = W, h = ROWS, fill = H.ramp(W, 10) } })
local row = H.ramp(W, 10)
local PLANES = T.testdata("libtiff/images/minisblack-2c-8b-alpha.tiff")  -- separate planes

T.group("Reading", function()
  T.test("single rows into a new block and into the caller's block", function()
    local t = H.opened(path)
    T.eq(t.BytesPerRow, W)
    for i = 0, ROWS - 1 do T.eq(t:Scanline(i):Bytes(), row(i), "row " .. i) end
    local mb = MemoryBlock(W + 2)
    mb:SetBytes(W, "\xEE\xEE")
    T.eq(t:Scanline(mb, 2), true)
    T.eq(mb:Bytes(), row(2) .. "\xEE\xEE", "only the row's bytes are written")
  end)
  T.test("runs are whole or nil", function()
    local t = H.opened(path)
    T.eq(t:Scanlines(1, 3):Bytes(), row(1) .. row(2) .. row(3))
    T.eq(t:Scanlines(0, ROWS).Size, W * ROWS)
    T.eq(t:Scanlines(2, 3), nil, "one row short")
    T.eq(t:Scanlines(0, 0), nil)
    T.eq(t:Scanlines(0, -1), nil)
    T.eq(t:Scanlines(0, 2147483647), nil, "larger than any block")
  end)
  T.test("past the last row: the byte -1 (not false), or nil", function()
    local t = H.opened(path)
    local errors = 0
    t.Error = function() errors = errors + 1 end
    T.eq(t:Scanline(MemoryBlock(W), ROWS), true, "0xFF reaches the host as true")
    T.eq(t:Scanline(ROWS), nil)
    T.truthy(errors >= 2, "libtiff reported both")
  end)
  T.test("a block shorter than a row is refused", function()
    local t = H.opened(path)
    local mb = MemoryBlock(W - 1)
    T.eq(t:Scanline(mb, 0), false)
    T.eq(mb:Bytes(), string.rep("\0", W - 1))
  end)
  T.test("the sample selects the plane, cut to 16 bits", function()
    local t = H.opened(PLANES)
    T.eq(t.PlanarConfig, 2)
    -- PackBits rows are read from the start of their strip: row 0 of each plane.
    local grey, alpha = t:Scanline(0, 0):Bytes(), t:Scanline(0, 1):Bytes()
    T.truthy(grey ~= alpha, "two different planes")
    T.eq(t:Scanline(0, 65536):Bytes(), grey)
    T.eq(t:Scanline(0, 65537):Bytes(), alpha)
    T.eq(t:Scanlines(0, 1, 65536):Bytes(), grey)
  end)
  -- Old-style JPEG reads its strips itself, so libtiff does not refuse a strip that was never
  -- written: without a guard it divided by the image's (zero) strips and stopped the host.
  T.test("an image created in memory and not written yet: failures and Error events, for every codec", function()
    for _, compression in ipairs({ 1, 5, 6, 7, 32773 }) do
      for _, create in ipairs({ "string", "file" }) do
        local t = TiffPictureTQV()
        local errors = 0
        t.Error = function() errors = errors + 1 end
        if create == "string" then
          T.eq(t:CreateString(0), true)
        else
          T.eq(t:Create(FolderItem(T.tmpfile("unwritten.tif"))), true)
        end
        t.Width, t.Height, t.Compression = 59, 41, compression
        local what = create .. ", compression " .. compression
        T.eq(t:Scanline(MemoryBlock(200), 26, 0), true, what .. ": the byte -1")
        T.eq(t:Scanline(26), nil, what)
        T.eq(t:Scanlines(2, 3), nil, what)
        T.truthy(errors >= 3, what .. ": every read reported")
        t:Close()
      end
    end
  end)
  T.test("a nil block raises before the open-file check; no file gives false or nil", function()
    local t = TiffPictureTQV()
    T.raises("NilObjectException", "memoryblock is nil", function() t:Scanline(nil, 0) end)
    T.eq(t:Scanline(MemoryBlock(8), 0), false)
    T.eq(t:Scanline(0), nil)
    T.eq(t:Scanlines(0, 1), nil)
    T.raises("NilObjectException", "memoryblock is nil", function() assign(t, "Scanline", nil, 0) end)
    T.raises("NilObjectException", "memoryblock is nil", function() assign(t, "Scanlines", nil, 0, 1) end)
    assign(t, "Scanline", MemoryBlock(8), 0)
  end)
end)

T.group("Writing", function()
  T.test("a run setter writes every row of the block", function()
    local out = T.tmpfile("scanline_run.tif")
    local t = TiffPictureTQV()
    t:Create(FolderItem(out))
    t.Width, t.Height, t.BitsPerSample, t.Photometric = W, ROWS, 8, 1
    local mb = MemoryBlock(W * ROWS)
    mb:SetBytes(0, row(0) .. row(1) .. row(2) .. row(3))
    assign(t, "Scanlines", mb, 0, ROWS)
    t:Close()
    T.eq(H.opened(out):Scanlines(0, ROWS):Bytes(), mb:Bytes())
  end)
  T.test("rows beyond the end of the block are not written", function()
    -- The run stops after the two whole rows the block holds; row 2 comes from the single setter.
    local out = T.tmpfile("scanline_short_block.tif")
    local t = TiffPictureTQV()
    t:Create(FolderItem(out))
    t.Width, t.Height, t.BitsPerSample, t.Photometric = W, ROWS, 8, 1
    local mb = MemoryBlock(W * 2 + 3)
    mb:SetBytes(0, row(0) .. row(1))
    assign(t, "Scanlines", mb, 0, ROWS)
    assign(t, "Scanline", mb, 2)
    t:Close()
    local r = H.opened(out)
    T.eq(r:Scanlines(0, 3):Bytes(), row(0) .. row(1) .. row(0))
  end)
  T.test("an image made but never written has no rows to read: one Error for a whole picture", function()
    local t = TiffPictureTQV()
    T.truthy(t:CreateString(0))
    t.Width, t.Height, t.BitsPerSample, t.Photometric, t.RowsPerStrip = 16, 50, 1, 0, 10
    local log = T.message_log(t)
    T.eq(t:Scanline(0), nil)
    T.eq(log(), "E TIFFReadScanline: No strips to read: no row of the image was written")
    T.eq(t:ReadBW(), false)
    T.eq(log(), "E TIFFReadScanline: No strips to read: no row of the image was written")
  end)
  -- Rows not yet flushed wait in libtiff's strip buffer and codec state, which a read of the same
  -- image would take over; with Group 4 the file could then not even be closed.
  T.test("rows of an image being written cannot be read until its directory is written", function()
    for _, compression in ipairs({ 1, 4, 5 }) do
      local out = T.tmpfile("scanline_read_while_writing_" .. compression .. ".tif")
      local t = TiffPictureTQV()
      t:Create(FolderItem(out))
      t.Width, t.Height, t.BitsPerSample, t.Photometric, t.Compression = 64, 20, 1, 0, compression
      t.RowsPerStrip = 20
      local mb = MemoryBlock(8)
      for i = 0, 7 do mb:SetByte(i, i * 37 % 256) end
      for y = 0, 9 do assign(t, "Scanline", mb, y) end
      local errors = {}
      t.Error = function(_, _, message) errors[#errors + 1] = tostring(message) end
      -- selecting a directory that is not there leaves the rows pending
      T.eq(t:SetImageIndex(3, true), false)
      T.eq(t:NextImage(true), false)
      T.eq(t:Scanline(0), nil, "compression " .. compression .. ": the read")
      T.eq(t:ReadBW(), false, "compression " .. compression .. ": a picture read")
      T.eq(t:MirrorVertical(t), false, "compression " .. compression .. ": an exchange")
      T.eq(errors[#errors], "Cannot read rows of an image while its rows are being written")
      t.Error = nil
      for y = 10, 19 do assign(t, "Scanline", mb, y) end
      T.eq(t:AddImage(), true, "the directory is written")
      t:Close()
      T.eq(H.opened(out):Scanlines(0, 20):Bytes(), string.rep(mb:Bytes(), 20), "compression " .. compression)
    end
  end)
  T.test("a failing row does not stop the run", function()
    local t = H.opened(path)  -- read-only: libtiff refuses every row
    local errors = 0
    t.Error = function() errors = errors + 1 end
    assign(t, "Scanlines", MemoryBlock(W * 3), 0, 3)
    T.eq(errors, 3, "each row was attempted")
    assign(t, "Scanline", MemoryBlock(W), 0)
    T.eq(errors, 4)
    T.eq(t:Scanline(1):Bytes(), row(1), "refused writes leave nothing pending")
  end)
  -- libtiff takes the rows of a strip in order from the first. Without the checks it lost rows it
  -- answered 1 for, wrote past its buffers and strip tables, or (a row written after a read of
  -- the same strip) stopped the process.
  T.test("rows libtiff cannot take are refused with an Error event; the others are written", function()
    for _, compression in ipairs({ 1, 5 }) do
      local out = T.tmpfile("scanline_order_" .. compression .. ".tif")
      local t = TiffPictureTQV()
      local refused = {}
      t.Error = function(_, module, message)
        if tostring(module) == "TIFFWriteScanline" then refused[#refused + 1] = tostring(message):match("^(%d+):") end
      end
      t:Create(FolderItem(out))
      t.Width, t.Height, t.BitsPerSample, t.Photometric, t.Compression, t.RowsPerStrip = W, ROWS, 8, 1, compression, 2
      local mb = MemoryBlock(W)
      local function put(y)
        mb:SetBytes(0, row(y % 8))
        assign(t, "Scanline", mb, y)
      end
      put(0)
      put(0)   -- again: the strip would start over inside the codec's state
      put(3)   -- skips row 1 of the strip
      put(1)
      put(9)   -- two strips past the end of the image
      put(-1)  -- row 4294967295: the height would become 0
      for y = 2, 5 do put(y) end  -- rows 4 and 5 make the image taller by one strip
      t.Height = 40               -- a taller image has no strip tables for its new rows yet
      put(20)
      T.eq(table.concat(refused, " "), "0 3 9 4294967295 20", "compression " .. compression)
      t:Close()
      local r = H.opened(out)
      T.eq(r.Height, 40)
      T.eq(r:Scanlines(0, 6):Bytes(), row(0) .. row(1) .. row(2) .. row(3) .. row(4) .. row(5))
    end
  end)
  -- libtiff keeps computing row positions from the strips it laid out: the rows of the strips
  -- past them were answered 1 for and lost.
  T.test("Height changed after the strips were laid out: the rows are refused", function()
    local function session()
      local t = TiffPictureTQV()
      local refused = {}
      t.Error = function(_, _, message) refused[#refused + 1] = tostring(message) end
      return t, refused
    end
    local out = T.tmpfile("scanline_height_raised.tif")
    local t, refused = session()
    t:Create(FolderItem(out))
    t.Width, t.Height, t.BitsPerSample, t.Photometric, t.RowsPerStrip = W, ROWS, 8, 1, 1
    local mb = MemoryBlock(W)
    for y = 0, ROWS + 1 do
      if y == ROWS then t.Height = ROWS + 2 end
      mb:SetBytes(0, row(y))
      assign(t, "Scanline", mb, y)
    end
    T.eq(#refused, 2, "the rows past the strips laid out for " .. ROWS .. " rows")
    T.truthy(refused[1]:find("^4: Height or RowsPerStrip changed"), refused[1])
    t:Close()
    T.eq(H.opened(out):Scanlines(0, ROWS):Bytes(), row(0) .. row(1) .. row(2) .. row(3))
    -- In a file opened for writing, rows of an image made shorter than its strips are refused too.
    local u, more = session()
    T.truthy(u:Open(FolderItem(out), "r+"))
    u.Height = 2
    assign(u, "Scanline", mb, 0)
    T.eq(#more, 1)
    u.Height = ROWS + 2
    u:Close()
    T.eq(H.opened(out):Scanline(0):Bytes(), row(0), "the file's rows are as they were")
  end)
  -- libtiff places the rows by the strips of one plane it counted when it read the image. With
  -- as many strips as before, separate planes made contiguous put rows behind the one written
  -- and wrote past its strip buffer; contiguous samples made separate stopped the process.
  T.test("PlanarConfig changed after the strips were laid out: the rows are refused", function()
    for _, case in ipairs({ { from = 2, to = 1, h = 2, rows = 6 }, { from = 1, to = 2, h = 6, rows = 2 } }) do
      local out = T.tmpfile("scanline_planar_" .. case.from .. ".tif")
      local t = TiffPictureTQV()
      t:Create(FolderItem(out))
      t.Width, t.Height, t.BitsPerSample, t.SamplesPerPixel, t.Photometric = W, case.h, 8, 3, 2
      t.PlanarConfig, t.RowsPerStrip = case.from, 1
      local planes = case.from == 2 and 3 or 1
      local function plane(p) return string.rep(string.char(7 + p), W * case.h * 3 / planes) end
      for p = 0, planes - 1 do
        local mb = MemoryBlock(#plane(p))
        mb:SetBytes(0, plane(p))
        assign(t, "Scanlines", mb, 0, case.h, p)
      end
      t:Close()
      local u = TiffPictureTQV()
      local refused = {}
      u.Error = function(_, _, message) refused[#refused + 1] = tostring(message) end
      T.truthy(u:Open(FolderItem(out), "r+"))
      u.PlanarConfig, u.Height = case.to, case.rows -- as many strips as the image holds
      assign(u, "Scanline", MemoryBlock(W * 3), 0, case.to == 2 and 1 or 0)
      T.eq(#refused, 1, "from PlanarConfig " .. case.from)
      T.truthy(refused[1] and refused[1]:find("PlanarConfig or SamplesPerPixel changed", 1, true), refused[1])
      u.PlanarConfig, u.Height = case.from, case.h
      u:Close()
      local r = H.opened(out)
      for p = 0, planes - 1 do T.eq(r:Scanlines(0, case.h, p):Bytes(), plane(p), "plane " .. p .. " as it was") end
    end
  end)
  T.test("rows read from a strip cannot be written back through the same session", function()
    local out = T.tmpfile("scanline_read_then_write.tif")
    local t = TiffPictureTQV()
    t:Create(FolderItem(out))
    t.Width, t.Height, t.BitsPerSample, t.Photometric, t.Compression, t.RowsPerStrip = W, ROWS, 8, 1, 5, ROWS
    for y = 0, ROWS - 1 do
      local mb = MemoryBlock(W)
      mb:SetBytes(0, row(y))
      assign(t, "Scanline", mb, y)
    end
    t:Close()
    T.truthy(t:Open(FolderItem(out), "r+"))
    local errors = 0
    t.Error = function() errors = errors + 1 end
    T.truthy(t:ReadRGB(), "decodes the strip")
    assign(t, "Scanline", MemoryBlock(W), 0)
    T.eq(errors, 1, "the row after a read of its strip is refused")
    t:Close()
    T.eq(H.opened(out):Scanlines(0, ROWS):Bytes(), row(0) .. row(1) .. row(2) .. row(3), "the file is as it was")
  end)
  T.test("the sample of a contiguous image is not handed to its codec", function()
    -- The SGILog codecs stop the process on any sample but 0.
    local t = H.opened(T.testdata("image-tiff/libtiffpic/off_luv32.tif"))
    T.eq(t.PlanarConfig, 1)
    T.eq(t:Scanline(0, 1):Bytes(), t:Scanline(0, 0):Bytes())
    local w = TiffPictureTQV()
    T.truthy(w:CreateString(0))
    w.Width, w.Height, w.SamplesPerPixel, w.BitsPerSample, w.Photometric, w.Compression = 8, 1, 1, 16, 32844, 34676
    local mb = MemoryBlock(w.BytesPerRow)
    mb:SetBytes(0, string.rep("\1\2", 8))
    assign(w, "Scanline", mb, 0, 2)
    w:Close()
    local back = TiffPictureTQV()
    T.truthy(back:OpenString(w.OutputBuffer))
    T.truthy(back:Scanline(0) ~= nil, "the row was written")
  end)
end)

-- libtiff decodes rows with the layout it read the directory with, whatever is set afterwards;
-- rows of another size would go into buffers sized by the new values.
T.group("A layout changed after the directory was read", function()
  local GREY = T.testdata("libtiff/images/minisblack-1c-8b.tiff")
  local LZW = T.testdata("libtiff/images/quad-lzw-compat.tiff")
  local LUT = {}
  for i = 0, 255 do LUT[#LUT + 1] = i * 0x010101 end
  local function watched(file)
    local t = TiffPictureTQV()
    local errors = {}
    t.Error = function(_, _, message) errors[#errors + 1] = tostring(message) end
    T.eq(t:Open(FolderItem(file)), true)
    return t, errors
  end
  T.test("rows are refused with an Error event, and read again once the layout is back", function()
    local t, errors = watched(GREY)
    t.BitsPerSample = 16
    T.eq(t:ReadWithLUT(LUT), false, "ReadWithLUT")
    T.eq(t:Scanline(0), nil, "Scanline")
    T.eq(t:ReadRGB(), false, "ReadRGB")
    T.eq(#errors, 3, "one Error each")
    T.truthy(errors[1]:find("changed after its directory was read", 1, true), errors[1])
    t.BitsPerSample = 8
    T.eq(t:ReadWithLUT(LUT), true, "the same layout again")
  end)
  T.test("a new width on a compressed image; selecting the directory again reads it anew", function()
    local t, errors = watched(LZW)
    local width = t.Width
    t.Width = 301
    T.eq(t:Scanlines(0, 2), nil)
    T.eq(t:ReadRGBMemoryBegin(Ref(nil)), false)
    T.eq(t:SetImageIndex(0), true)
    T.eq(t.Width, width)
    T.eq(t:ReadRGB(), true)
    T.eq(#errors, 2)
  end)
  T.test("an export into a file opened for reading sets nothing: the rows read on", function()
    local t, errors = watched(GREY)
    local width, samples = t.Width, t.SamplesPerPixel
    t.Pict = NewPicture(301, 7)
    T.eq(t:WriteGray(), false, "WriteGray")
    T.eq(t:WriteRGB(), false, "WriteRGB")
    T.eq(t:WriteBW(), false, "WriteBW")
    T.eq(#errors, 3)
    T.eq(errors[1], "File not open for writing")
    T.eq(t.Width, width)
    T.eq(t.SamplesPerPixel, samples)
    T.eq(t:ReadWithLUT(LUT), true)
  end)
  T.test("the codec's own data format: LogLuv read as 8 bits, or as floats", function()
    local file = T.testdata("libtiff/images/logluv-3c-16b.tiff")
    local t, errors = watched(file)
    T.eq(t:ReadRGB(), true, "ReadRGB sets 8-bit data")
    T.eq(t.BitsPerSample, 8)
    T.eq(t:ReadRGB(), true, "and reads again")
    T.eq(t:ReadRGBMemoryBegin(Ref(nil)), true)
    t:ReadRGBMemoryEnd()
    local u, more = watched(file)
    T.eq(u:SetFieldInteger(65560, 0), true, "SGILogDataFmt float")
    T.eq(u.BitsPerSample, 32)
    T.eq(u:Scanline(0).Size, 12)
    T.eq(#errors + #more, 0)
  end)
end)

T.finish()
