-- tiffinfo.lua: prints the header fields of every page (directory) of a TIFF file, laid out like
-- libtiff's own tiffinfo.
--
--   tqvhost run examples/tiffinfo.lua [--verbose] FILE
package.path = (arg[0]:match("^(.*)/[^/]*$") or ".") .. "/lib/?.lua;" .. package.path
local tt = require("tqvtools")

tt.tool("tiffinfo.lua", [[
usage: tqvhost run tiffinfo.lua [options] FILE

Prints every page's header fields: size, resolution, sample layout, compression, photometric
interpretation, orientation, strips, the text tags, extra samples, and the sizes of an embedded
ICC profile, XMP packet and colour map.

options:
  --version   print the libtiff version the plugin uses, then the file's fields
  --verbose   also print libtiff's warnings and errors as they arrive
  --help      this text
]])

local opts, files = tt.parse(arg, { version = "flag" })
if #files ~= 1 then tt.usage_error("expected one FILE, got %d argument(s)", #files) end
local path = files[1]

local t = tt.open(path)
if opts.version then
  print(string.format("libtiff version %d: %s", t.Version, (tostring(t.VersionString):match("^[^\n]*"))))
end

local function line(fmt, ...) print("  " .. string.format(fmt, ...)) end

-- Prints the fields of the current directory.
local function print_directory(index)
  if index > 0 then print() end
  print(string.format("=== TIFF directory %d ===", index))
  line("Image Width: %d Image Length: %d", t.Width, t.Height)
  local xres, yres = t.HorizontalResolution, t.VerticalResolution
  if xres == 0 and yres == 0 then
    line("Resolution: not set")
  else
    line("Resolution: %g, %g %s", xres, yres, tt.named(tt.resunit_names, t.ResolutionUnit))
  end
  line("Position: %g, %g", t.HorizontalPosition, t.VerticalPosition)
  line("Bits/Sample: %d", t.BitsPerSample)
  line("Compression Scheme: %s", tt.named(tt.compression_names, t.Compression))
  line("Photometric Interpretation: %s", tt.named(tt.photometric_names, t.Photometric))
  local extras = tt.extra_samples(t)
  if #extras > 0 then
    local names = {}
    for i, code in ipairs(extras) do names[i] = tt.named(tt.extrasample_names, code) end
    line("Extra Samples: %d<%s>", #extras, table.concat(names, ", "))
  end
  line("FillOrder: %s", tt.named(tt.fillorder_names, t.FillOrder))
  line("Orientation: %s", tt.named(tt.orientation_names, t.Orientation))
  line("Samples/Pixel: %d", t.SamplesPerPixel)
  local rows = t.RowsPerStrip
  if rows ~= 0 then line("Rows/Strip: %d", rows) end
  line("Planar Configuration: %s", tt.named(tt.planar_names, t.PlanarConfig))
  line("Bytes/Scanline: %d", t.BytesPerRow)
  for _, tag in ipairs(tt.string_tags) do
    local v = t[tag]
    if v then line("%s: %s", tag, tostring(v)) end
  end
  local icc = t:GetColorProfile()
  if icc then line("ICC Profile: <present>, %d bytes", #icc) end
  local xmp = t:GetXMP()
  if xmp then line("XMLPacket (XMP Metadata): %d bytes", #xmp) end
  local red, green, blue = Ref(nil), Ref(nil), Ref(nil)
  if t:GetColorMap(red, green, blue) then
    line("Color Map: (present) %d entries", red.value.Size // 2)
  end
end

local count = t:ImageCount()
if count == 0 then tt.fail("%s: holds no image%s", path, tt.why()) end

local unreadable = 0
for index = 0, count - 1 do
  tt.why() -- forget messages of earlier directories
  -- The first directory is loaded by Open; later ones are selected without decoding pixels.
  if index == 0 or t:SetImageIndex(index, true) then
    print_directory(index)
  else
    unreadable = unreadable + 1
    if index > 0 then print() end
    print(string.format("=== TIFF directory %d === cannot be read%s", index, tt.why()))
  end
end
t:Close()
t = nil
if unreadable > 0 then tt.fail("%s: %d of %d directories could not be read", path, unreadable, count) end
tt.exit(0)
