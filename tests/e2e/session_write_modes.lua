-- Opening existing files and strings in modes that write into their directories ("a", "r+").
-- libtiff's directory writer follows the file's chain of directories to its end without a loop
-- check: a hang here shows as the test's timeout.
local T = require("testlib")

local function copy(rel, name)
  return T.write_bytes(T.tmpfile(name), T.read_bytes(T.testdata(rel)))
end

-- Writes a 3x1 grey page into the session's current directory and adds it.
local function add_page(t)
  t.Width, t.Height, t.BitsPerSample, t.SamplesPerPixel, t.Photometric = 3, 1, 8, 1, 1
  assign(t, "Scanline", MemoryBlock(3), 0, 0)
  return t:AddImage()
end

local function pages(path)
  local r = TiffPictureTQV()
  T.truthy(r:Open(FolderItem(path)), "reopen " .. path)
  return r:ImageCount(), r:SetImageIndex(r:ImageCount() - 1, true) and r.Width
end

T.group("directory chains that loop", function()
  local looping = {
    "libtiff/images/test_ifd_loop_to_first.tif",
    "libtiff/images/test_ifd_loop_to_self.tif",
    "pillow/multipage_multiple_frame_loop.tiff",
  }
  T.test("a file opens for reading only, untouched", function()
    for i, rel in ipairs(looping) do
      local path = copy(rel, "loop" .. i .. ".tif")
      for _, mode in ipairs({ "a", "r+" }) do
        local t = TiffPictureTQV()
        local take = T.message_log(t)
        T.eq(t:Open(FolderItem(path), mode), false, rel .. " " .. mode)
        T.truthy(take():find("^E TIFFOpen: The directory chain loops"), rel .. " " .. mode .. " error")
        T.eq(add_page(t), false, "AddImage")
        t:Close()
      end
      T.eq(T.read_bytes(path), T.read_bytes(T.testdata(rel)), rel .. " unchanged")
      T.eq(TiffPictureTQV():Open(FolderItem(path)), true, rel .. " r")
    end
  end)
  T.test("a string opens for reading only", function()
    local data = T.read_bytes(T.testdata(looping[1]))
    local t = TiffPictureTQV()
    local take = T.message_log(t)
    T.eq(t:OpenString(data, "r+"), false, "r+")
    T.eq(t:OpenString(data, "a"), false, "a")
    T.truthy(take():find("^E TIFFOpen: The directory chain loops.* | E TIFFOpen: The directory chain loops"))
    T.eq(t:OpenString(data, "r"), true, "r")
  end)
end)

T.group("appending BigTIFF directories (mode a8)", function()
  T.test("a classic file is refused, untouched; BigTIFF and new files take the page", function()
    local classic = "libtiff/images/minisblack-1c-8b.tiff"
    local path = copy(classic, "classic.tif")
    local t = TiffPictureTQV()
    local take = T.message_log(t)
    T.eq(t:Open(FolderItem(path), "a8"), false, "classic")
    T.truthy(take():find('^E TIFFOpen: Cannot append BigTIFF directories %(mode with "8"%) to a classic'))
    T.eq(T.read_bytes(path), T.read_bytes(T.testdata(classic)), "unchanged")
    T.eq(t:OpenString(T.read_bytes(path), "a8"), false, "classic string")

    local big = copy("image-tiff/images/bigtiff/BigTIFF.tif", "big.tif")
    local fresh = T.tmpfile("fresh.tif")
    os.remove(fresh)
    for _, case in ipairs({ { big, 2 }, { fresh, 1 } }) do
      T.eq(t:Open(FolderItem(case[1]), "a8"), true, case[1])
      T.eq(add_page(t), true, "AddImage")
      t:Close()
      T.eq(T.read_bytes(case[1]):sub(3, 3), "+", "BigTIFF header")
      local count, width = pages(case[1])
      T.eq(count, case[2], "pages")
      T.eq(width, 3, "appended page")
    end
  end)
end)

T.finish()
