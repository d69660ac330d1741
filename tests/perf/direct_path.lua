-- The direct read (strips or tiles decoded straight into the pictures) against the raster path.
--
-- arg[1] is "record" or "compare", arg[2] a folder shared by the two runs. The record run is
-- started with TQV_FORCE_RGBA_PATH set, so every ReadRGB goes through libtiff's full RGBA raster;
-- it saves Pict and Mask of every test file (PNG, which is lossless and deterministic) and a
-- manifest of the results. The compare run reads the same files with the direct path allowed and
-- must give the same result, the same picture sizes and the same bytes, for every file.
local T = require("testlib")

local MODE = assert(arg[1], "usage: direct_path.lua record|compare FOLDER")
local FOLDER = assert(arg[2], "usage: direct_path.lua record|compare FOLDER")

local function save(picture, path)
  os.remove(path)
  if picture == nil then return "nil" end
  picture:Save(path)
  return picture.Width .. "x" .. picture.Height
end

-- One line of the manifest: what ReadRGB answered and the sizes of the two pictures.
local function read_file(rel, n, prefix)
  local t = TiffPictureTQV()
  local result = "unopened"
  local pict, mask = "nil", "nil"
  if t:Open(FolderItem(T.testdata(rel))) then
    result = tostring(t:ReadRGB())
    pict = save(t.Pict, string.format("%s/%s%04d_pict.png", FOLDER, prefix, n))
    mask = save(t.Mask, string.format("%s/%s%04d_mask.png", FOLDER, prefix, n))
  end
  t:Close()
  return table.concat({ rel, result, pict, mask }, "\t")
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
  for n, rel in ipairs(T.testdata_files()) do
    T.test(rel, function()
      local line = read_file(rel, n, "direct_")
      T.eq(line, expected[n], "result and picture sizes")
      for _, kind in ipairs({ "pict", "mask" }) do
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
    T.truthy(compared > 200, "pictures compared: " .. compared)
    print("     pictures compared: " .. compared)
  end)
end

T.finish()
