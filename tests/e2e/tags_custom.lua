-- Private tags, tag blobs (any counted tag, ICC profile, XMP packet) and colour maps.
local T = require("testlib")
local H = require("tags_helpers")

local SHORTS, TEXT = 65100, 65101

-- A one-pixel grey image whose extra tags `set(t)` writes before the pixel.
local function write_one_pixel(path, set)
  local t = TiffPictureTQV()
  T.truthy(t:Create(FolderItem(path)), "Create")
  t.Width, t.Height, t.BitsPerSample, t.Photometric = 1, 1, 8, 1
  set(t)
  assign(t, "Scanline", MemoryBlock(1), 0, 0)
  t:Close()
end

local function shorts(n)
  local mb = MemoryBlock(n * 2)
  for i = 0, n - 1 do mb:SetUInt16(i * 2, 1000 + i) end
  return mb
end

local function declare(t)
  T.eq(t:AddCustomTag(SHORTS, -1, -1, 3, 65, 1, 1, "Private shorts"), true)
  T.eq(t:AddCustomTag(TEXT, -1, -1, 2, 65, 1, 0, "Private text"), true)
end

T.group("Private tags", function()
  T.test("AddCustomTag needs an open file", function()
    T.eq(TiffPictureTQV():AddCustomTag(SHORTS, -1, -1, 3, 65, 1, 1, "x"), false)
  end)
  T.test("declared, written, reopened, declared again and read back", function()
    local path = T.tmpfile("custom_private.tif")
    local expected = shorts(10):Bytes(0, 10)
    write_one_pixel(path, function(t)
      declare(t)
      T.eq(t:SetFieldMemory(SHORTS, 10, shorts(10)), true)
      T.eq(t:SetFieldString(TEXT, "hello"), true)
      T.eq(t:GetData(SHORTS) and tostring(t:GetData(SHORTS)), expected, "count bytes: the first five values")
      T.eq(tostring(t:GetData(TEXT)), "hello")
    end)
    local t = TiffPictureTQV()
    t:Open(FolderItem(path))
    declare(t)  -- libtiff already defined both tags while reading: its definitions stay
    local data = t:GetData(SHORTS)
    T.eq(tostring(data), expected)
    T.eq(data.encoding, 0xFFFF)
    local n = Ref(0)
    local mb = t:GetFieldMemory(SHORTS, n)
    T.eq(n.value, 10)
    T.eq(mb:UInt16(18), 1009)
    local s = Ref(nil)
    T.eq(t:GetFieldString(TEXT, s), true)
    T.eq(tostring(s.value), "hello")
    T.eq(tostring(t:GetData(TEXT)):sub(1, 5), "hello")
  end)
  T.test("descriptions libtiff 4.5 cannot take are mapped or refused, never fatal", function()
    local path = T.tmpfile("custom_mapped.tif")
    write_one_pixel(path, function(t)
      T.eq(t:AddCustomTag(65102, 3, 3, 2, 65, 1, 1, "Counted text"), true, "ASCII with a count: mapped")
      T.eq(t:SetFieldString(65102, "abc"), true)
      T.eq(t:AddCustomTag(65103, -1, -1, 3, 65, 1, 0, "Variable without count"), false)
      T.eq(t:AddCustomTag(65104, 1, 1, 99, 65, 1, 0, "No such type"), false)
      T.eq(t:AddCustomTag(65105, 2, 2, 3, 7, 1, 5, "Fixed count with a count, own bit"), true)
      T.eq(t:SetFieldMemory(65105, 2, shorts(2)), true)
      T.eq(t:AddCustomTag(256, 1, 1, 2, 65, 1, 0, "Known tag"), true, "libtiff keeps its own")
      T.eq(t:SetFieldInteger(256, 1), true)
    end)
    local ref = H.reference(path)
    T.eq(ref.open, "true")
    T.eq(ref.Width, "1")
    local t = TiffPictureTQV()
    t:Open(FolderItem(path))
    local s = Ref(nil)
    T.eq(t:GetFieldString(65102, s), true)
    T.eq(tostring(s.value), "abc")
    T.eq(#tostring(t:GetData(65105)), 2)
  end)
  T.test("GetData of a tag that is not counted or text is nil", function()
    local t = TiffPictureTQV()
    t:Open(FolderItem(T.testdata("libtiff/images/rgb-3c-8b.tiff")))
    T.eq(t:GetData(256), nil)
    T.eq(t:GetData(60002), nil)
    T.eq(t:SetData(256, "x"), false)
  end)
end)

T.group("Type codes outside TIFF's own", function()
  local CORPUS = (debug.getinfo(1, "S").source:match("^@(.*/)e2e/") or "tests/") .. "corpus/"
  T.test("declared, met in a file or in a damaged file: no value is set, read or written", function()
    local path = T.tmpfile("custom_type14.tif")
    write_one_pixel(path, function(t)
      T.eq(t:AddCustomTag(65110, -1, -1, 14, 65, 1, 1, "Type 14"), false)
      T.eq(t:AddCustomTag(65111, 1, 1, 15, 65, 1, 0, "Type 15"), false)
      T.eq(t:SetData(65110, "abc"), false)
    end)
    T.eq(H.reference(path).open, "true")
    -- libtiff keeps the file's type code (14 here, 513 in the Pillow file) in the definition it makes.
    local copy = T.write_bytes(T.tmpfile("custom_type14_rw.tif"), T.read_bytes(CORPUS .. "private_tag_type_14.tif"))
    local t, s, n = TiffPictureTQV(), Ref(nil), Ref(0)
    t.Warning = function() end
    T.truthy(t:Open(FolderItem(copy), "r+"), "Open r+")
    T.eq(t:SetData(65000, "abc"), false)
    T.eq(t:SetFieldMemory(65000, 1, MemoryBlock(8)), false)
    T.eq(t:RewriteDirectory(), true)
    t:Close()
    t = H.opened(T.testdata("pillow/crash-2020-10-test.tif"))
    T.eq(t:GetFieldString(512, s), false)
    T.eq(t:GetData(512), nil)
    T.eq(t:GetFieldMemory(512, n), nil); T.eq(n.value, 0)
    T.eq(t:SetData(512, "x"), false)
  end)
end)

T.group("Codec tags defined before their codec", function()
  local CORPUS = (debug.getinfo(1, "S").source:match("^@(.*/)e2e/") or "tests/") .. "corpus/"
  T.test("met in a file: take no value while that codec is the image's; before it, ordinary counted tags", function()
    local path = CORPUS .. "codec_tags_uncompressed.tif"
    local t = H.opened(path)
    t.Error = function() end
    T.eq(t:SetData(519, "abc"), true, "uncompressed: the definition libtiff made holds")
    T.eq(tostring(t:GetData(519)), "abc")
    t.Compression = 6  -- old-style JPEG takes 519 as uint64 offsets and 513 as one uint64
    T.eq(t.Compression, 6)
    T.eq(t:SetData(519, "abc"), false)
    T.eq(t:SetFieldMemory(519, 3, MemoryBlock(24)), false)
    T.eq(t:SetData(513, "abcd"), false)
    T.eq(t:GetData(513), nil)
    local n = Ref(7)
    T.eq(t:GetFieldCount(513, n, MemoryBlock(8)), false); T.eq(n.value, 0)
    T.eq(t:GetFieldMemory(519, n), nil); T.eq(n.value, 0)
    t = H.opened(path)
    t.Error = function() end
    t.Compression = 34887  -- LERC reads two ints of its parameters whatever the count
    T.eq(t:SetData(50674, "ab"), false)
  end)
  T.test("not declared by the program: the codec takes them once its compression is set", function()
    local path = T.tmpfile("custom_codec_predictor.tif")
    local t = TiffPictureTQV()
    T.truthy(t:Create(FolderItem(path)))
    local take = T.message_log(t)
    t.Width, t.Height, t.BitsPerSample, t.Photometric = 8, 1, 8, 1
    T.eq(t:AddCustomTag(317, 1, 1, 3, 65, 1, 0, "Predictor"), false)
    T.eq(take(), "E AddCustomTag: Tag 317 belongs to a compression's codec: set Compression, then the tag")
    for _, tag in ipairs({ 292, 347, 513, 34908, 50674 }) do
      T.eq(t:AddCustomTag(tag, -1, -1, 1, 65, 1, 1, "Codec tag " .. tag), false, "tag " .. tag)
    end
    t.Compression = 5
    T.eq(t:SetFieldShort(317, 2), true)
    local row = MemoryBlock(8)
    for x = 0, 7 do row:SetByte(x, 10 + 20 * x) end
    assign(t, "Scanline", row, 0, 0)
    t:Close()
    local r = H.opened(path)
    local v = Ref(0)
    T.eq(r:GetFieldShort(317, v), true); T.eq(v.value, 2)
    T.eq(r:Scanline(0, 0):Bytes(0, 8), "\10\30\50\70\90\110\130\150", "rows differenced as the file says")
    -- libtiff's codec controls (65537 is JPEGQuality) are taken by the codec in its own form
    T.eq(t:CreateString(0), true)
    t.Error = function() end
    T.eq(t:AddCustomTag(65537, -1, -1, 2, 65, 1, 0, "JPEG quality as text"), false)
    T.eq(t:AddCustomTag(-1, -1, -1, 2, 65, 1, 0, "Beyond any file"), false)
    t.Compression = 7
    T.eq(t:AddCustomTag(65537, 1, 1, 3, 65, 1, 0, "Known to the JPEG codec"), true, "a known number still answers true")
  end)
end)

T.group("ICC profile and XMP", function()
  local profile = "\0\1\2\0icc\0\255tail"
  local packet = "<x:xmpmeta>caf\xC3\xA9</x:xmpmeta>"
  T.test("absent: nil", function()
    local t = TiffPictureTQV()
    t:Open(FolderItem(T.testdata("libtiff/images/rgb-3c-8b.tiff")))
    T.eq(t:GetColorProfile(), nil)
    T.eq(t:GetXMP(), nil)
    T.eq(TiffPictureTQV():GetColorProfile(), nil, "no file")
    T.eq(TiffPictureTQV():SetXMP("x"), false, "no file")
  end)
  T.test("round trip through a file, zero bytes included", function()
    local path = T.tmpfile("custom_icc_xmp.tif")
    write_one_pixel(path, function(t)
      T.eq(t:SetColorProfile(String(profile, 0xFFFF)), true)
      T.eq(t:SetXMP(packet), true)
      T.eq(tostring(t:GetColorProfile()), profile)
    end)
    T.truthy(T.read_bytes(path):find(profile, 1, true), "profile bytes in the file")
    local t = TiffPictureTQV()
    t:Open(FolderItem(path))
    local icc, xmp = t:GetColorProfile(), t:GetXMP()
    T.eq(tostring(icc), profile)
    T.eq(icc.encoding, 0xFFFF)
    T.eq(tostring(xmp), packet)
    T.eq(xmp.encoding, 0xFFFF)
  end)
end)

T.group("Colour map", function()
  local function entries(r, g, b)
    local out = {}
    for i = 0, r.Size // 2 - 1 do
      out[#out + 1] = string.format("%d/%d/%d", r:UInt16(i * 2), g:UInt16(i * 2), b:UInt16(i * 2))
    end
    return table.concat(out, ",")
  end
  for _, case in ipairs({ { "palette-1c-4b.tiff", 4, 32 }, { "palette-1c-8b.tiff", 8, 512 } }) do
    local file, bits, size = case[1], case[2], case[3]
    T.test(file .. ": read as libtiff holds it and written back identically", function()
      local path = T.testdata("libtiff/images/" .. file)
      local t, r, g, b = TiffPictureTQV(), Ref(nil), Ref(nil), Ref(nil)
      t:Open(FolderItem(path))
      T.eq(t:GetColorMap(r, g, b), true)
      T.eq(r.value.Size, size)
      local want = H.reference(path).ColorMap
      T.eq(entries(r.value, g.value, b.value), want)
      local copy = T.tmpfile("colormap_" .. bits .. ".tif")
      local w = TiffPictureTQV()
      w:Create(FolderItem(copy))
      w.Width, w.Height, w.BitsPerSample, w.Photometric = 2, 1, bits, 3
      T.eq(w:SetColorMap(r.value, g.value, b.value), true)
      assign(w, "Scanline", MemoryBlock(2), 0, 0)
      w:Close()
      T.eq(H.reference(copy).ColorMap, want)
    end)
  end
  T.test("no colour map: false, and blocks held before come back nil", function()
    local t, r, g, b = TiffPictureTQV(), Ref(MemoryBlock(4)), Ref(MemoryBlock(4)), Ref(nil)
    t:Open(FolderItem(T.testdata("libtiff/images/rgb-3c-8b.tiff")))
    T.eq(t:GetColorMap(r, g, b), false)
    T.eq(r.value, nil); T.eq(g.value, nil); T.eq(b.value, nil)
    T.eq(TiffPictureTQV():GetColorMap(r, g, b), false, "no file")
  end)
  T.test("nil blocks raise in channel order, also with no file", function()
    local t, mb = TiffPictureTQV(), MemoryBlock(32)
    T.raises("NilObjectException", "red memoryblock is nil", function() t:SetColorMap(nil, nil, nil) end)
    T.raises("NilObjectException", "green memoryblock is nil", function() t:SetColorMap(mb, nil, mb) end)
    T.raises("NilObjectException", "blue memoryblock is nil", function() t:SetColorMap(mb, mb, nil) end)
    T.eq(t:SetColorMap(mb, mb, mb), false)
  end)
  T.test("blocks shorter than the colour map are refused", function()
    local t = TiffPictureTQV()
    t:Create(FolderItem(T.tmpfile("colormap_short.tif")))
    t.BitsPerSample = 8
    local short, full = MemoryBlock(510), MemoryBlock(512)
    T.eq(t:SetColorMap(full, short, full), false)
    T.eq(t:SetColorMap(full, full, full), true)
  end)
end)

T.finish()
