-- Directories: a multi-page file written with AddImage, walked, selected, rewritten in place, and
-- opened through the FolderItem extension.
local T = require("testlib")
local H = require("tags_helpers")

local pages = {
  { w = 8, h = 4, fill = H.ramp(8), name = "one" },
  { w = 16, h = 2, spp = 3, compression = 5, fill = H.ramp(48, 3), name = "two" },
  { w = 5, h = 3, compression = 32773, fill = H.ramp(5, 7), name = "three" },
}
local path = H.write_pages(T.tmpfile("dirs_pages.tif"), pages)

local function check_page(t, i)
  local ref = H.reference(path, i)
  T.eq(t.Width, tonumber(ref.Width), "page " .. i .. " width")
  T.eq(t.Compression, tonumber(ref.Compression), "page " .. i .. " compression")
  T.eq(tostring(t.PageName), ref.PageName)
  local page = pages[i + 1]
  for row = 0, page.h - 1 do
    T.eq(t:Scanline(row):Bytes(), page.fill(row), "page " .. i .. " row " .. row)
  end
end

T.group("Walking", function()
  T.test("the pages are those libtiff reports", function()
    T.eq(H.reference(path).ImageCount, "3")
    local t = H.opened(path)
    T.eq(t:ImageCount(), 3)
    T.eq(t:ImageIndex(), 0)
    T.eq(t:IsLastImage(), false)
    check_page(t, 0)
    T.eq(t:NextImage(true), true)
    T.eq(t:ImageIndex(), 1)
    check_page(t, 1)
    T.eq(t:NextImage(true), true)
    check_page(t, 2)
    T.eq(t:IsLastImage(), true)
    T.eq(t:NextImage(true), false, "past the last page")
    T.eq(t:ImageIndex(), 2)
  end)
  T.test("SetImageIndex selects by 16-bit index", function()
    local t = H.opened(path)
    T.eq(t:SetImageIndex(2, true), true); check_page(t, 2)
    T.eq(t:SetImageIndex(65536 + 1, true), true); T.eq(t:ImageIndex(), 1)
    T.eq(t:SetImageIndex(65536, true), true); T.eq(t:ImageIndex(), 0)
    T.eq(t:SetImageIndex(3, true), false)
    T.eq(t:SetImageIndex(-1, true), false, "asks for 65535")
    T.eq(t:ImageIndex(), 0, "a failed change leaves the directory")
  end)
  T.test("a directory change decodes the image unless HeaderOnly", function()
    local t = H.opened(path)
    T.eq(t.Pict, nil)
    T.eq(t:NextImage(true), true)
    T.eq(t.Pict, nil, "header only")
    T.eq(t:SetImageIndex(0), true)
    T.eq(t.Pict.Width, 8)
    T.eq(t:NextImage(true), true)
    T.eq(t.Width, 16)
    T.eq(t.Pict.Width, 8, "still the first image")
    T.eq(t:NextImage(), true)
    T.eq(t.Pict.Width, 5)
    T.eq(t:NextImage(), false)
    T.eq(t.Pict.Width, 5, "a failed change keeps the pictures")
    T.eq(t:SetImageIndex(1, false), true)
    T.eq(t.Pict.Width, 16)
  end)
  T.test("with no file every method fails", function()
    local t = TiffPictureTQV()
    T.eq(t:NextImage(), false); T.eq(t:NextImage(false), false)
    T.eq(t:SetImageIndex(0), false); T.eq(t:SetImageIndex(0, true), false)
    T.eq(t:SaveImage(), false); T.eq(t:RewriteDirectory(), false); T.eq(t:AddImage(), false)
    T.eq(t:IsLastImage(), false); T.eq(t:ImageCount(), 0); T.eq(t:ImageIndex(), 0)
    T.eq(t:Flush(), false); T.eq(t:FlushData(), false)
    T.eq(t.Pict, nil)
  end)
  T.test("a new file has no directory yet: index 65535", function()
    local t = TiffPictureTQV()
    t:Create(FolderItem(T.tmpfile("dirs_new.tif")))
    T.eq(t:ImageIndex(), 65535)
    T.eq(t:FlushData(), true)
  end)
end)

T.group("Rewriting in place", function()
  for _, method in ipairs({ "SaveImage", "RewriteDirectory", "Flush" }) do
    T.test(method .. " rewrites the current directory", function()
      local copy = H.write_pages(T.tmpfile("dirs_" .. method .. ".tif"), pages)
      local t = TiffPictureTQV()
      T.truthy(t:Open(FolderItem(copy), "r+"))
      T.eq(t:SetImageIndex(1, true), true)
      t.ImageDescription = "rewritten by " .. method
      T.eq(t[method](t), true)
      if method == "Flush" then -- the program stays on its page: libtiff began a new one after it
        T.eq(t:ImageIndex(), 1); T.eq(t.Width, 16)
        T.eq(t:AddImage(), false, "the page is in the file already")
      end
      t:Close()
      T.eq(H.reference(copy, 1).ImageDescription, "rewritten by " .. method)
      T.eq(H.reference(copy).ImageCount, "3")
      local r = TiffPictureTQV()
      r:Open(FolderItem(copy))
      r:SetImageIndex(1, true)
      T.eq(r:Scanlines(0, 2):Bytes(), pages[2].fill(0) .. pages[2].fill(1), "pixels kept")
    end)
  end
end)

-- libtiff's directory readers left the last strip of a page being written in its buffer: those
-- rows were lost, and the next row written into the other page was recorded past the end of its
-- strip tables (the process stopped).
T.group("Selecting another page while rows are being written", function()
  -- A w x h picture whose every pixel is (seed + x, seed + y, seed) and its rows as RGB bytes.
  local function picture(w, h, seed)
    local p = NewPicture(w, h)
    for y = 0, h - 1 do for x = 0, w - 1 do p:SetPixel(x, y, seed + x, seed + y, seed) end end
    return p
  end
  local function rgb_rows(w, h, seed)
    local out = {}
    for y = 0, h - 1 do
      for x = 0, w - 1 do out[#out + 1] = string.char(seed + x, seed + y, seed) end
    end
    return table.concat(out)
  end
  local function pages_as_written(t, sizes)
    for i, size in ipairs(sizes) do
      T.eq(t:SetImageIndex(i - 1, true), true)
      T.eq(t:Scanlines(0, size[2]):Bytes(), rgb_rows(size[1], size[2], size[3]), "page " .. (i - 1))
    end
  end
  T.test("a file opened with r+: both pages are written whole", function()
    local copy = T.tmpfile("dirs_pending.tif")
    local w = TiffPictureTQV()
    T.truthy(w:Create(FolderItem(copy)))
    for i, seed in ipairs({ 10, 20, 30 }) do
      w.RowsPerStrip = 2
      w.Pict = picture(5, 3, seed)
      T.eq(w:WriteRGB(), true)
      if i < 3 then T.eq(w:AddImage(), true) end
    end
    w:Close()
    for _, select in ipairs({ "SetImageIndex", "NextImage" }) do
      T.write_bytes(copy .. "." .. select, T.read_bytes(copy))
      local t = TiffPictureTQV()
      T.truthy(t:Open(FolderItem(copy .. "." .. select), "r+"))
      T.eq(t:SetImageIndex(1, true), true)
      t.Pict = picture(5, 3, 40) -- the second strip holds one row, pending when the page changes
      T.eq(t:WriteRGB(), true)
      if select == "SetImageIndex" then T.eq(t:SetImageIndex(0, true), true) else T.eq(t:NextImage(true), true) end
      t.Pict = picture(5, 3, 50)
      T.eq(t:WriteRGB(), true)
      t:Close()
      local r = H.opened(copy .. "." .. select)
      T.eq(r:ImageCount(), 3)
      local other = select == "SetImageIndex" and 0 or 2
      pages_as_written(r, { { 5, 3, other == 0 and 50 or 10 }, { 5, 3, 40 }, { 5, 3, other == 2 and 50 or 30 } })
    end
  end)
  T.test("in memory: the page being written is kept when the first is selected", function()
    local t = TiffPictureTQV()
    T.truthy(t:CreateString(0))
    t.Pict = picture(4, 2, 60)
    T.eq(t:WriteRGB(), true)
    T.eq(t:AddImage(), true)
    t.Pict = picture(6, 3, 70)
    T.eq(t:WriteRGB(), true)
    T.eq(t:SetImageIndex(0, true), true)
    t:Close()
    local r = TiffPictureTQV()
    T.truthy(r:OpenString(t.OutputBuffer))
    T.eq(r:ImageCount(), 2)
    pages_as_written(r, { { 4, 2, 60 }, { 6, 3, 70 } })
  end)
end)

-- Directory writes that cannot happen, and selections that fail on a damaged page, leave the
-- session where it was: every page still found, the layout still guarded (a write that fails:
-- dirs_disk_full.lua).
T.group("Writes and selections that fail", function()
  T.test("a session that writes nothing: AddImage changes nothing, SaveImage and Flush refuse", function()
    local t = H.opened(path)
    T.eq(t:AddImage(), true, "libtiff writes nothing for a file opened for reading")
    t.Width = 1
    T.eq(t:Scanline(0), nil, "rows of the old width are not decoded into rows of the new one")
    t.Width = 8
    local log = T.message_log(t)
    T.eq(t:SaveImage(), false)
    T.truthy(log():find("File not open for writing", 1, true))
    T.eq(t:ImageCount(), 3)
    T.eq(t:SetImageIndex(1, true), true)
    -- A string's stream cannot be written whatever the mode: the same refusals, before libtiff
    -- forgets where the first page is.
    local s = TiffPictureTQV()
    T.truthy(s:OpenString(T.read_bytes(path), "r+"))
    s.ImageDescription = "changed"
    T.eq(s:Flush(), false)
    T.eq(s:SaveImage(), false)
    T.eq(s:ImageCount(), 3)
    T.eq(s:SetImageIndex(2, true), true)
    T.eq(s:Scanline(0):Bytes(), pages[3].fill(0))
  end)
  T.test("a page that fails to read leaves the current one, and writes go to it", function()
    local damaged = T.tmpfile("dirs_damaged_page.tif")
    local m = TiffPictureTQV()
    T.truthy(m:Create(FolderItem(damaged)))
    m.Width, m.Height, m.BitsPerSample, m.SamplesPerPixel, m.Photometric = 2, 1, 8, 1, 1
    assign(m, "Scanline", MemoryBlock(2), 0, 0)
    T.eq(m:AddImage(), true)
    m.Make = "page 1 has no height" -- libtiff refuses to read it
    m:Close()
    for _, select in ipairs({ "SetImageIndex", "NextImage" }) do
      local t = TiffPictureTQV()
      T.truthy(t:Open(FolderItem(damaged), "r+"))
      if select == "SetImageIndex" then T.eq(t:SetImageIndex(1, true), false) else T.eq(t:NextImage(true), false) end
      T.eq(t:ImageIndex(), 0)
      T.eq(t.Width, 2)
      t.Software = select
      T.eq(t:SaveImage(), true)
      t:Close()
      T.eq(H.reference(damaged, 0).Software, select)
      T.eq(H.reference(damaged).ImageCount, "2")
    end
  end)
  T.test("AddImage refuses a page read from the file: it would be written over what follows it", function()
    local copy = H.write_pages(T.tmpfile("dirs_add_read_page.tif"), pages)
    local t = TiffPictureTQV()
    T.truthy(t:Open(FolderItem(copy), "r+"))
    t.Software = "more tags than before"
    local log = T.message_log(t)
    T.eq(t:AddImage(), false)
    T.truthy(log():find("SaveImage writes it back", 1, true))
    t:Close()
    local r = H.opened(copy)
    T.eq(r:ImageCount(), 3)
    for i = 0, 2 do
      T.eq(r:SetImageIndex(i, true), true)
      check_page(r, i)
    end
  end)
  T.test("fields set on a page of a file opened with r+ are written when another page is selected", function()
    for _, select in ipairs({ "SetImageIndex", "NextImage" }) do
      local copy = H.write_pages(T.tmpfile("dirs_fields_" .. select .. ".tif"), pages)
      local t = TiffPictureTQV()
      T.truthy(t:Open(FolderItem(copy), "r+"))
      t.ImageDescription = "set before " .. select
      if select == "SetImageIndex" then T.eq(t:SetImageIndex(2, true), true) else T.eq(t:NextImage(true), true) end
      T.eq(t.PageName and tostring(t.PageName), select == "SetImageIndex" and "three" or "two")
      t:Close()
      T.eq(H.reference(copy, 0).ImageDescription, "set before " .. select)
      T.eq(H.reference(copy).ImageCount, "3")
    end
  end)
end)

T.group("FolderItem.OpenAsTiffTQV", function()
  T.test("false decodes the first image, true only loads its header", function()
    local full = FolderItem(path):OpenAsTiffTQV(false)
    T.eq(full.Pict.Width, 8)
    T.eq(full.Width, 8)
    local header = FolderItem(path):OpenAsTiffTQV(true)
    T.eq(header.Pict, nil)
    T.eq(header.Width, 8)
    T.eq(header:ImageCount(), 3)
    T.eq(FolderItem(path):OpenAsTiffTQV().Pict.Height, 4, "HeaderOnly defaults to false")
  end)
  T.test("a file libtiff cannot open gives nil", function()
    local bad = T.tmpfile("dirs_not_a_tiff.tif")
    T.write_bytes(bad, "not a TIFF at all")
    T.eq(FolderItem(bad):OpenAsTiffTQV(), nil)
    T.eq(FolderItem(T.tmpfile("dirs_missing.tif")):OpenAsTiffTQV(true), nil)
  end)
end)

T.finish()
