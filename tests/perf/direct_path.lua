-- The direct read (strips or tiles decoded straight into the pictures) against the raster path.
--
-- arg[1] is "record" or "compare", arg[2] a folder shared by the two runs. The record run is
-- started with TQV_FORCE_RGBA_PATH set, so every ReadRGB goes through libtiff's full RGBA raster;
-- it saves Pict and Mask of every test file and the picture TIFFStringToPictureTQV makes of it
-- (PNG, which is lossless and deterministic), and a manifest of the results. The compare run
-- reads the same files with the direct path allowed and must give the same result, the same
-- picture sizes and the same bytes, for every file.
local T = require("testlib")

local MODE = assert(arg[1], "usage: direct_path.lua record|compare FOLDER")
local FOLDER = assert(arg[2], "usage: direct_path.lua record|compare FOLDER")

local function save(picture, path)
  os.remove(path)
  if picture == nil then return "nil" end
  picture:Save(path)
  return picture.Width .. "x" .. picture.Height
end

-- One line of the manifest: what ReadRGB answered with its events, the sizes of the two
-- pictures, then the size of the picture TIFFStringToPictureTQV makes of the file's bytes (saved
-- with its mask, which the direct read writes in place and the raster path attaches afterwards).
local function read_file(rel, n, prefix)
  local t = TiffPictureTQV()
  local result = "unopened"
  local pict, mask = "nil", "nil"
  -- Every Error and Warning event of the read, in order: a direct read that declines must not
  -- have swallowed a message that libtiff gives only once for a handle.
  local messages = T.message_log(t)
  if t:Open(FolderItem(T.testdata(rel))) then
    messages()  -- what opening said is not compared
    result = tostring(t:ReadRGB()) .. " [" .. messages() .. "]"
    pict = save(t.Pict, string.format("%s/%s%04d_pict.png", FOLDER, prefix, n))
    mask = save(t.Mask, string.format("%s/%s%04d_mask.png", FOLDER, prefix, n))
  end
  t:Close()
  local whole = TIFFStringToPictureTQV(T.read_bytes(T.testdata(rel)))
  local string_pict = save(whole, string.format("%s/%s%04d_string.png", FOLDER, prefix, n))
  return table.concat({ rel, result, pict, mask, string_pict }, "\t")
end

local function read_all(prefix)
  local lines = {}
  for n, rel in ipairs(T.testdata_files()) do lines[n] = read_file(rel, n, prefix) end
  return lines
end

if MODE == "record" then
  T.test("ReadRGB through the raster path, every test file", function()
    local lines = read_all("rgba_")
    local f = assert(io.open(FOLDER .. "/manifest.tsv", "w"))
    f:write(table.concat(lines, "\n"), "\n")
    f:close()
    T.truthy(#lines > 100, "files read: " .. #lines)
  end)
else
  local expected = {}
  for line in io.lines(FOLDER .. "/manifest.tsv") do expected[#expected + 1] = line end
  local compared = 0
  -- libtiff 4.5's RGBA interface refuses uncompressed tiles read from a memory stream unless
  -- the tile size is a multiple of 1 KiB ("Invalid tile byte count"); the direct read has no
  -- such limit. There the string's picture must be the file's, pixel for pixel, as the raster
  -- path read it from the mapped file.
  local function same_as_file(rel, n)
    local picture = assert(LoadPicture(string.format("%s/direct_%04d_string.png", FOLDER, n)))
    local pict = assert(LoadPicture(string.format("%s/rgba_%04d_pict.png", FOLDER, n)))
    local mask = assert(LoadPicture(string.format("%s/rgba_%04d_mask.png", FOLDER, n)))
    for y = 0, pict.Height - 1 do
      for x = 0, pict.Width - 1 do
        T.eq(table.concat({ picture:Pixel(x, y) }, ","), table.concat({ pict:Pixel(x, y) }, ","), rel .. " colour")
        -- A PNG saved from an opaque mask has no alpha, and loads without a mask.
        T.eq(picture.Mask and picture.Mask:Pixel(x, y) or 0, mask:Pixel(x, y), rel .. " mask")
      end
    end
  end

  local refused = 0
  for n, rel in ipairs(T.testdata_files()) do
    T.test(rel, function()
      local line = read_file(rel, n, "direct_")
      local fields, wanted = {}, {}
      for f in (line .. "\t"):gmatch("(.-)\t") do fields[#fields + 1] = f end
      for f in (expected[n] .. "\t"):gmatch("(.-)\t") do wanted[#wanted + 1] = f end
      if wanted[5] == "nil" and fields[5] ~= "nil" and wanted[3] == fields[5] then
        same_as_file(rel, n)
        refused = refused + 1
        fields[5] = "nil"
        os.remove(string.format("%s/direct_%04d_string.png", FOLDER, n))
      end
      T.eq(table.concat(fields, "\t"), expected[n], "result and picture sizes")
      for _, kind in ipairs({ "pict", "mask", "string" }) do
        local direct = string.format("%s/direct_%04d_%s.png", FOLDER, n, kind)
        local rgba = string.format("%s/rgba_%04d_%s.png", FOLDER, n, kind)
        local f = io.open(rgba, "rb")
        if f then
          f:close()
          T.truthy(T.read_bytes(direct) == T.read_bytes(rgba), rel .. ": " .. kind .. " differs from the raster path")
          compared = compared + 1
          os.remove(direct)
        end
      end
    end)
  end
  T.test("the sweep compared pictures", function()
    T.truthy(compared > 300, "pictures compared: " .. compared)
    T.truthy(refused < 10, "pictures the raster path refused in memory: " .. refused)
    print("     pictures compared: " .. compared .. ", refused by the raster path in memory: " .. refused)
  end)
end

T.finish()
