-- ReadBW and ReadWithLUT against libtiff's own rendering of the test data's first images.
--
-- arg[1] is the rgba_reference tool (see picture_read.lua). A 1-bit image read by ReadBW, and a
-- palette, grey or RGB image read by ReadWithLUT through the table that maps each value to what
-- libtiff renders it as, must both give libtiff's picture. Only striped files that libtiff's own
-- tool reads without error and that are not damaged on purpose take part: on damaged data
-- libtiff's scanline and strip decoders may disagree, and the reads decode rows one by one.
local T = require("testlib")
local R = require("rgba_reference")

local REFERENCE = assert(arg[1], "usage: picture_read_tables.lua RGBA_REFERENCE_TOOL")
local GRID = 61
local MAX_PIXELS = 4000000 -- beyond this the reference's rendering is not worth the time
local MAX_SIDE = 32767

-- Every pixel of a small picture; the border and a grid of a large one.
local function expect_like(pict, w, h, raw, where)
  T.eq(pict and pict.Width, w, where .. " width"); T.eq(pict.Height, h, where .. " height")
  local function at(x, y)
    local i = (y * w + x) * 4 + 1
    local r, g, b = raw:byte(i, i + 2)
    local pr, pg, pb = pict:Pixel(x, y)
    if pr ~= r or pg ~= g or pb ~= b then
      T.fail(string.format("%s: (%d, %d) = %d,%d,%d, libtiff %d,%d,%d", where, x, y, pr, pg, pb, r, g, b))
    end
  end
  local xs, ys = {}, {}
  local function spread(n, out)
    if n <= GRID then for i = 0, n - 1 do out[#out + 1] = i end return end
    for i = 0, GRID - 1 do out[#out + 1] = (i * (n - 1)) // (GRID - 1) end
  end
  spread(w, xs); spread(h, ys)
  for _, y in ipairs(ys) do for _, x in ipairs(xs) do at(x, y) end end
end

-- The table that renders each value of `t`'s image as libtiff does, or nil for other images.
local function table_for(t)
  local bits, photometric = t.BitsPerSample, t.Photometric
  local out = {}
  if t.SamplesPerPixel == 1 and bits == 8 and photometric == 3 then
    local r, g, b = Ref(nil), Ref(nil), Ref(nil)
    if not t:GetColorMap(r, g, b) then return nil end
    -- libtiff takes a map whose entries all fit in 8 bits for an 8-bit one.
    local shift = 0
    for i = 0, 255 do
      if math.max(r.value:UInt16(2 * i), g.value:UInt16(2 * i), b.value:UInt16(2 * i)) > 255 then shift = 8 end
    end
    for i = 0, 255 do
      out[i + 1] = (r.value:UInt16(2 * i) >> shift) << 16 | (g.value:UInt16(2 * i) >> shift) << 8
        | (b.value:UInt16(2 * i) >> shift)
    end
  elseif t.SamplesPerPixel == 1 and (bits == 8 or bits == 16) and (photometric == 0 or photometric == 1) then
    for i = 0, (1 << bits) - 1 do
      local v = i >> (bits - 8)
      if photometric == 0 then v = 255 - v end
      out[i + 1] = v * 0x010101
    end
  elseif t.SamplesPerPixel == 3 and bits == 8 and photometric == 2 then
    for i = 0, 255 do out[i + 1] = i * 0x010101 end
  else
    return nil
  end
  return out
end

local function check_file(rel, counts)
  local path = T.testdata(rel)
  local t = TiffPictureTQV()
  t.Warning, t.Error = function() end, function() end
  if not t:Open(FolderItem(path)) then return end
  local plain = t.Orientation == 1 and t.PlanarConfig == 1 and t.RowsPerStrip > 0
    and t.Width * t.Height <= MAX_PIXELS and t.Width <= MAX_SIDE and t.Height <= MAX_SIDE
  if not plain then return end
  local bilevel = t.BitsPerSample == 1 and t.SamplesPerPixel == 1 and t.FillOrder == 1
    and (t.Photometric == 0 or t.Photometric == 1)
  local values = not bilevel and table_for(t)
  if not bilevel and not values then return end
  local status, w, h, raw = R.render(REFERENCE, path)
  if status ~= "ok" then return end
  if bilevel then
    T.eq(t:ReadBW(), true, rel .. " ReadBW")
    expect_like(t.Pict, w, h, raw, rel .. " ReadBW")
    counts.bilevel = counts.bilevel + 1
  else
    T.eq(t:ReadWithLUT(values), true, rel .. " ReadWithLUT")
    expect_like(t.Pict, w, h, raw, rel .. " ReadWithLUT")
    counts.tables = counts.tables + 1
  end
end

T.group("ReadBW and ReadWithLUT equal libtiff's RGBA rendering", function()
  local counts = { bilevel = 0, tables = 0 }
  for _, row in ipairs(T.testdata_index()) do
    -- tiffinfo's result, libtiff's RGBA rendering, the layout, and whether damage is suspected
    if row[26] == "0" and row[21] == "yes" and row[15] == "striped" and row[23] == "-" then
      local rel = row[1] .. "/" .. row[2]
      T.test(rel, function() check_file(rel, counts) end)
    end
  end
  T.test("the sweep compared pictures of both kinds", function()
    T.truthy(counts.bilevel >= 10, "1-bit images compared: " .. counts.bilevel)
    T.truthy(counts.tables >= 40, "table images compared: " .. counts.tables)
    print(string.format("     1-bit %d, through tables %d", counts.bilevel, counts.tables))
  end)
end)

T.finish()
