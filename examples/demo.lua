-- The demo host program: what a user of the plugin does most.
--
--   tqvhost run examples/demo.lua IN.tif OUTDIR
--
-- For every page of IN.tif: prints its header fields, reads it into a picture and its mask, and
-- saves it as a PNG with transparency. Then writes all pages back into one new multi-page TIFF (RGB, with the mask as
-- alpha), once as a file and once in memory, and checks that the copy reads back the same.

package.path = (arg[0]:match("^(.*)/[^/]*$") or ".") .. "/lib/?.lua;" .. package.path
local tt = require("tqvtools")

local function usage()
  io.stderr:write("usage: tqvhost run examples/demo.lua IN.tif OUTDIR\n")
  os.exit(2)
end

local input, outdir = arg[1], arg[2]
if not input or not outdir or input == "--help" then usage() end
if not FolderItem(input).Exists then
  io.stderr:write("demo: no such file: " .. input .. "\n")
  os.exit(1)
end

local function describe_page(t, page)
  local text = t.ImageDescription
  return string.format("page %d: %d x %d, %d bit x %d, compression %d, photometric %d%s",
    page, t.Width, t.Height, t.BitsPerSample, t.SamplesPerPixel, t.Compression, t.Photometric,
    text and (", \"" .. tostring(text) .. "\"") or "")
end

local function report_errors(t)
  t.Error = function(_, module, message)
    io.stderr:write("libtiff: ", tostring(module), ": ", tostring(message), "\n")
  end
end

-- Reads every page into { pict, mask } pairs, saving PNGs on the way.
local function read_pages(path)
  local t = TiffPictureTQV()
  report_errors(t)
  if not t:Open(FolderItem(path)) then
    io.stderr:write("demo: not a TIFF file libtiff can open: " .. path .. "\n")
    os.exit(1)
  end
  local pages = {}
  for page = 0, t:ImageCount() - 1 do
    t:SetImageIndex(page, true)
    print(describe_page(t, page))
    if not t:ReadRGB() or not t.Pict then
      print(string.format("  page %d: libtiff cannot render it as RGBA; skipped", page))
    else
      -- The picture with the mask attached saves as a PNG with transparency.
      local png = string.format("%s/page%d.png", outdir, page)
      t:CombinePictureWithMask():Save(png)
      print("  -> " .. png)
      pages[#pages + 1] = { pict = t.Pict, mask = t.Mask }
    end
  end
  t:Close()
  return pages
end

-- Writes the pages as RGB + alpha into `t`, which was created on a file or in memory.
local function write_pages(t, pages)
  for i, p in ipairs(pages) do
    -- ReadRGB's mask is black where opaque, WriteRGB's alpha white where opaque: invert it.
    t.Pict, t.Mask = p.pict, tt.alpha_of(p.mask)
    t.Compression = TiffPictureTQV.kCompressionLZW
    assert(t:WriteRGB(), "WriteRGB failed on page " .. (i - 1))
    if i < #pages then assert(t:AddImage(), "AddImage failed") end
  end
  t:Close()
end

-- The copy must have the same mask, and the same colour wherever the image is opaque (libtiff
-- hands out colours premultiplied by alpha, so partly transparent pixels change on every read).
local function same_page(t, page)
  local a, b = t.Pict, page.pict
  if a.Width ~= b.Width or a.Height ~= b.Height then return false end
  for y = 0, a.Height - 1 do
    for x = 0, a.Width - 1 do
      local m1, m2 = t.Mask:Pixel(x, y), page.mask:Pixel(x, y)
      local r1, g1, b1 = a:Pixel(x, y)
      local r2, g2, b2 = b:Pixel(x, y)
      if m1 ~= m2 or (m1 == 0 and (r1 ~= r2 or g1 ~= g2 or b1 ~= b2)) then return false end
    end
  end
  return true
end

print("Reading " .. input)
local pages = read_pages(input)

local copy = outdir .. "/copy.tif"
local out = TiffPictureTQV()
report_errors(out)
assert(out:Create(FolderItem(copy)), "cannot create " .. copy)
write_pages(out, pages)
print(string.format("Wrote %d page(s) back to %s", #pages, copy))

local mem = TiffPictureTQV()
report_errors(mem)
assert(mem:CreateString(0), "CreateString failed")
write_pages(mem, pages)
local bytes = mem.OutputBuffer
print(string.format("Wrote the same pages into memory: %d bytes", #bytes))

-- Read the in-memory copy back and compare it with what was read from the input.
local back = TIFFStringToTiffPictureTQV(bytes)
local ok = back ~= nil and back:ImageCount() == #pages
for i = 1, ok and #pages or 0 do
  ok = ok and back:SetImageIndex(i - 1) and same_page(back, pages[i])
end
print(ok and "The in-memory copy reads back with the same pixels and masks."
         or "The in-memory copy differs from the input!")
print("Files are in " .. outdir)
os.exit(ok and 0 or 1)
