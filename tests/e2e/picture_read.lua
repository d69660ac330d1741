-- ReadRGB against libtiff's own rendering of every file in the test data.
--
-- arg[1] is the rgba_reference tool: it renders a file with the plain libtiff API, top row first,
-- into raw R, G, B, A bytes. Whatever it can render must come out of ReadRGB as Pict = R, G, B and
-- Mask = 255 - A on every back end. Small images are compared pixel by pixel; large ones on
-- their border rows and columns plus a grid, which still catches flips, shifts and swapped
-- channels.
local T = require("testlib")
local R = require("rgba_reference")

local REFERENCE = assert(arg[1], "usage: picture_read.lua RGBA_REFERENCE_TOOL")
local FULL_COMPARE_PIXELS = 65536
local GRID = 97 -- a prime number of grid lines, so strides do not follow strip or tile sizes
local MAX_SIDE = 32767

local function reference(path) return R.render(REFERENCE, path) end

local function positions(n)
  if n <= GRID then
    local all = {}
    for i = 0, n - 1 do all[#all + 1] = i end
    return all
  end
  local some = {}
  for i = 0, GRID - 1 do some[#some + 1] = (i * (n - 1)) // (GRID - 1) end
  return some
end

local function compare_pixel(pict, mask, raw, w, x, y, where)
  local i = (y * w + x) * 4 + 1
  local r, g, b, a = raw:byte(i, i + 3)
  local pr, pg, pb = pict:Pixel(x, y)
  if pr ~= r or pg ~= g or pb ~= b then
    T.fail(string.format("%s: Pict(%d, %d) = %d,%d,%d, libtiff %d,%d,%d", where, x, y, pr, pg, pb, r, g, b))
  end
  local mr, mg, mb = mask:Pixel(x, y)
  local v = 255 - a
  if mr ~= v or mg ~= v or mb ~= v then
    T.fail(string.format("%s: Mask(%d, %d) = %d,%d,%d, expected %d (alpha %d)", where, x, y, mr, mg, mb, v, a))
  end
end

local function compare(pict, mask, raw, w, h, where)
  T.eq(pict.Width, w, where .. " Pict width"); T.eq(pict.Height, h, where .. " Pict height")
  T.eq(mask.Width, w, where .. " Mask width"); T.eq(mask.Height, h, where .. " Mask height")
  if w * h <= FULL_COMPARE_PIXELS then
    for y = 0, h - 1 do for x = 0, w - 1 do compare_pixel(pict, mask, raw, w, x, y, where) end end
    return
  end
  for x = 0, w - 1 do
    compare_pixel(pict, mask, raw, w, x, 0, where); compare_pixel(pict, mask, raw, w, x, h - 1, where)
  end
  for y = 0, h - 1 do
    compare_pixel(pict, mask, raw, w, 0, y, where); compare_pixel(pict, mask, raw, w, w - 1, y, where)
  end
  for _, y in ipairs(positions(h)) do
    for _, x in ipairs(positions(w)) do compare_pixel(pict, mask, raw, w, x, y, where) end
  end
end

local function check_file(rel)
  local path = T.testdata(rel)
  local status, w, h, raw = reference(path)
  local t = TiffPictureTQV()
  local opened = t:Open(FolderItem(path))
  if status == "no" then
    -- libtiff cannot render it: the read must fail or succeed safely; nothing to compare.
    if opened then t:ReadRGB() end
    return "unrendered"
  end
  T.truthy(opened, rel .. " opens")
  if status == "too-large" then
    T.eq(t:ReadRGB(), false, rel .. " (" .. w .. "x" .. h .. ") is beyond the raster limit")
    return "too-large"
  end
  T.eq(t:ReadRGB(), true, rel .. " ReadRGB")
  if w > MAX_SIDE or h > MAX_SIDE then
    T.eq(t.Pict, nil, rel .. " Pict"); T.eq(t.Mask, nil, rel .. " Mask")
    return "oversized"
  end
  compare(t.Pict, t.Mask, raw, w, h, rel)
  return "compared"
end

T.group("ReadRGB equals libtiff's RGBA rendering", function()
  local counts = {}
  for _, rel in ipairs(T.testdata_files()) do
    T.test(rel, function()
      local kind = check_file(rel)
      counts[kind] = (counts[kind] or 0) + 1
    end)
  end
  T.test("the sweep compared pictures", function()
    T.truthy((counts.compared or 0) > 100, "compared files: " .. tostring(counts.compared))
    T.truthy((counts.oversized or 0) >= 1, "an image over 32,767 pixels high was read")
    print(string.format("     compared %d, oversized %d, too large %d, unrendered %d", counts.compared or 0,
      counts.oversized or 0, counts["too-large"] or 0, counts.unrendered or 0))
  end)
end)

T.finish()
