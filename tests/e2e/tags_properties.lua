-- The typed tag properties: every one against libtiff's own report for the shared test files,
-- the no-file values, and what the setters write.
local T = require("testlib")
local H = require("tags_helpers")

local integer_keys = { "Width", "Height", "RowsPerStrip", "FillOrder", "BitsPerSample", "SamplesPerPixel",
                       "Orientation", "ResolutionUnit", "Compression", "Photometric", "PlanarConfig" }
local single_keys = { "HorizontalResolution", "VerticalResolution", "HorizontalPosition", "VerticalPosition" }

local function to_int32(v)
  v = tonumber(v) or 0
  return v >= 2147483648 and v - 4294967296 or v
end

local function extra_samples(mb)
  if mb == nil then return "" end
  local codes = {}
  for i = 0, mb.Size // 2 - 1 do codes[#codes + 1] = tostring(mb:UInt16(i * 2)) end
  return table.concat(codes, ",")
end

local function check_file(path)
  local ref = H.reference(path)
  local t = TiffPictureTQV()
  T.truthy(t:Open(FolderItem(path)), "Open " .. path)
  for _, k in ipairs(integer_keys) do T.eq(t[k], to_int32(ref[k]), path .. " " .. k) end
  for _, k in ipairs(single_keys) do
    local want = tonumber(ref[k]) or 0
    T.near(t[k], want, math.abs(want) * 1e-6, path .. " " .. k)
  end
  for _, k in ipairs(H.text_keys) do
    local s = t[k]
    local want = ref[k] ~= "" and ref[k] or nil
    T.eq(s and tostring(s), want, path .. " " .. k)
    if s then T.eq(s.encoding, 0x600, k .. " encoding") end
  end
  T.eq(extra_samples(t.ExtraSamples), ref.ExtraSamples, path .. " ExtraSamples")
  local bytes = tonumber(ref.BytesPerRow)
  T.eq(t.BytesPerRow, bytes <= 2147483647 and bytes or 0, path .. " BytesPerRow")
  t:Close()
end

T.group("Properties read what libtiff reports", function()
  local files = H.testfiles()
  T.truthy(#files > 100, "test files found")
  T.test("every property of every readable test file", function()
    for _, path in ipairs(files) do check_file(path) end
  end)
  T.test("JPEGQuality exists only while the compression is JPEG", function()
    local t = TiffPictureTQV()
    t:Open(FolderItem(T.testdata("libtiff/images/quad-tile.jpg.tiff")))
    T.eq(t.JPEGQuality, 75, "libtiff's default")
    t:Open(FolderItem(T.testdata("libtiff/images/rgb-3c-8b.tiff")))
    T.eq(t.JPEGQuality, 0)
  end)
end)

T.group("No file open", function()
  T.test("getters give the no-file values, setters are ignored", function()
    local t = TiffPictureTQV()
    for _, k in ipairs(integer_keys) do
      t[k] = 7
      T.eq(t[k], 0, k)
    end
    for _, k in ipairs(single_keys) do
      t[k] = 7.5
      T.eq(t[k], 0.0, k)
    end
    for _, k in ipairs(H.text_keys) do
      t[k] = "x"
      T.eq(t[k], nil, k)
    end
    t.ExtraSamples = MemoryBlock(2)
    T.eq(t.ExtraSamples, nil)
    t.JPEGQuality = 50
    T.eq(t.JPEGQuality, 0)
    T.eq(t.BytesPerRow, 0)
  end)
  T.test("Version and VersionString need no file", function()
    local t = TiffPictureTQV()
    T.eq(t.Version, 20100615)
    local banner = t.VersionString
    T.truthy(tostring(banner):find("^LIBTIFF, Version "), "banner " .. tostring(banner))
    T.eq(banner.encoding, 0x600)
  end)
end)

T.group("Setters", function()
  local function created(name)
    local t = TiffPictureTQV()
    T.truthy(t:Create(FolderItem(T.tmpfile(name))), "Create")
    return t
  end
  T.test("16-bit setters keep the low 16 bits", function()
    local t = created("props_16bit.tif")
    t.BitsPerSample = 65544
    T.eq(t.BitsPerSample, 8)
    t.Orientation = 65537
    T.eq(t.Orientation, 1)
    t.Compression = 65536 + 5
    T.eq(t.Compression, 5)
  end)
  T.test("32-bit setters keep the whole integer; values above 2^31 read negative", function()
    local t = created("props_32bit.tif")
    t.Width = 70000
    t.RowsPerStrip = -2
    T.eq(t.Width, 70000)
    T.eq(t.RowsPerStrip, -2, "4294967294 as a signed host integer")
  end)
  T.test("text is written as UTF-8 and read back labelled ASCII", function()
    local path = T.tmpfile("props_text.tif")
    H.write_pages(path, { { w = 4, h = 1, fill = H.ramp(4), name = "Seite \u{e9}" } })
    local ref = H.reference(path)
    T.eq(ref.PageName, "Seite \xC3\xA9", "bytes in the file")
    local t = TiffPictureTQV()
    t:Open(FolderItem(path))
    local s = t.PageName
    T.eq(tostring(s), "Seite \xC3\xA9")
    T.eq(s.encoding, 0x600)
  end)
  T.test("a text set from another encoding is converted to UTF-8", function()
    local t = created("props_macroman.tif")
    t.Software = String("caf\x8E", 0)  -- Mac Roman e-acute
    T.eq(tostring(t.Software), "caf\xC3\xA9")
  end)
  T.test("an empty text reads nil", function()
    local t = created("props_empty.tif")
    t.Make = ""
    T.eq(t.Make, nil)
  end)
  T.test("ExtraSamples of 3 bytes sets one sample; nil sets none", function()
    local t = created("props_extra.tif")
    t.SamplesPerPixel = 4
    local mb = MemoryBlock(3)
    mb:SetUInt16(0, 2)
    mb:SetByte(2, 1)
    t.ExtraSamples = mb
    local got = t.ExtraSamples
    T.eq(got.Size, 2)
    T.eq(got:UInt16(0), 2)
    t.ExtraSamples = nil
    T.eq(t.ExtraSamples, nil)
  end)
  T.test("resolutions and positions round-trip through the file", function()
    local path = T.tmpfile("props_float.tif")
    local t = created("props_float.tif")
    t.Width, t.Height, t.BitsPerSample, t.Photometric = 1, 1, 8, 1
    t.HorizontalResolution, t.VerticalResolution, t.ResolutionUnit = 300, 150.5, 3
    t.HorizontalPosition, t.VerticalPosition = 1.25, 2
    assign(t, "Scanline", MemoryBlock(1), 0, 0)
    t:Close()
    local ref = H.reference(path)
    T.eq(tonumber(ref.HorizontalResolution), 300)
    T.eq(tonumber(ref.VerticalResolution), 150.5)
    T.eq(tonumber(ref.ResolutionUnit), 3)
    T.eq(tonumber(ref.HorizontalPosition), 1.25)
    T.eq(tonumber(ref.VerticalPosition), 2)
  end)
  T.test("a negative position is written as 0 and the file stays readable", function()
    local path = T.tmpfile("props_negative_position.tif")
    local t = created("props_negative_position.tif")
    t.Width, t.Height, t.BitsPerSample, t.Photometric = 1, 1, 8, 1
    t.HorizontalPosition = -3
    t.VerticalPosition = 0 / 0
    T.eq(t.HorizontalPosition, 0.0)
    assign(t, "Scanline", MemoryBlock(1), 0, 0)
    t:Close()
    local ref = H.reference(path)
    T.eq(ref.open, "true")
    T.eq(tonumber(ref.HorizontalPosition), 0)
    T.eq(tonumber(ref.VerticalPosition), 0)
  end)
  T.test("a setter makes its object the message target", function()
    local a, b = created("props_target_a.tif"), TiffPictureTQV()
    local errors = 0
    a.Error = function() errors = errors + 1 end
    a.JPEGQuality = 50  -- not a JPEG image: libtiff reports an unknown tag
    T.truthy(errors >= 1, "error delivered to a")
  end)
  -- Leaving old-style JPEG used to stop the host at the next row read or written (libtiff 4.5
  -- keeps that codec's field handling on its freed state).
  T.test("the compression of an old-style JPEG image stays, read or created", function()
    local path = T.tmpfile("ojpeg_copy.tif")
    T.write_bytes(path, T.read_bytes(T.testdata("libtiff/images/ojpeg_chewey_subsamp21_multi_strip.tiff")))
    local messages = {}
    local function session(t)
      t.Error = function(self, module, message) messages[#messages + 1] = module .. ": " .. message end
      return t
    end
    local t = session(TiffPictureTQV())
    T.eq(t:Open(FolderItem(path), "r+"), true)
    t.Compression = 1
    T.eq(t.Compression, 6, "the property keeps old-style JPEG")
    T.eq(t:SetFieldInteger(259, 5), false)
    T.eq(t:SetFieldShort(259, 1), false)
    T.eq(messages[1], "Compression: Cannot change the compression of an old-style JPEG image")
    T.eq(#messages, 3)
    T.truthy(t:Scanline(0), "a row still reads")
    t.Pict = NewPicture(392, 575)
    T.eq(t:WriteRGB(), false, "old-style JPEG cannot be written")
    t:Close()
    local made = session(TiffPictureTQV())
    T.eq(made:CreateString(0), true)
    made.Pict = NewPicture(10, 10)
    made.Compression = 6
    made.Compression = 65535
    T.eq(made.Compression, 6)
    T.eq(made:WriteRGB(), false)
    made:Close()
  end)
  -- libtiff 4.5 left the old codec's tags marked as set, and writing the directory then wrote
  -- values the new codec never handed out (JPEGTables and the fax texts through stray pointers).
  T.test("a codec's own tags go with it when the compression changes", function()
    local path = T.tmpfile("jpeg_to_lzw.tif")
    T.write_bytes(path, T.read_bytes(T.testdata("pillow/hopper_jpg.tif")))
    local t = TiffPictureTQV()
    T.truthy(t:Open(FolderItem(path), "r+"))
    T.truthy(t:GetData(347) ~= nil, "JPEGTables read with the image")
    t.Compression = 5
    T.truthy(t:SaveImage(), "the directory is written again")
    t:Close()
    T.truthy(t:Open(FolderItem(path)))
    T.eq(t.Compression, 5)
    T.eq(t:GetData(347), nil)
    t:Close()
    local fax = T.tmpfile("fax_to_none.tif")
    local f = TiffPictureTQV()
    T.truthy(f:Create(FolderItem(fax)))
    f.Width, f.Height, f.BitsPerSample, f.Photometric, f.Compression = 8, 1, 1, 0, 3
    T.truthy(f:SetFieldString(34909, "12345"), "FaxSubAddress")
    f.Compression = 1
    assign(f, "Scanline", MemoryBlock(1), 0)
    f:Close()
    T.truthy(f:Open(FolderItem(fax)))
    T.eq(f.Compression, 1)
    T.eq(f:GetData(34909), nil)
  end)
end)

T.finish()
