-- png2tiff.lua: writes PNG pictures as the pages of one TIFF file.
--
--   tqvhost run examples/png2tiff.lua [options] OUT.tif IN.png...
package.path = (arg[0]:match("^(.*)/[^/]*$") or ".") .. "/lib/?.lua;" .. package.path
local tt = require("tqvtools")

tt.tool("png2tiff.lua", [[
usage: tqvhost run png2tiff.lua [options] OUT.tif IN.png...

Writes each PNG as one page of OUT.tif, in the order given. Prints one line per page.

options:
  --mode rgb|gray8|gray16|bw   pixel format (default rgb). rgb: 8-bit RGB, with an alpha
                               sample when the PNG has transparency; gray8/gray16: one grey
                               sample taken from the red channel; bw: one bit a pixel, black
                               where the colour is very dark, stored min-is-white
  --compression none|lzw|deflate|jpeg|packbits|g4
                               (default none; g4 only with --mode bw, jpeg only with rgb or
                               gray8)
  --quality N                  JPEG quality 1-100 (default 75)
  --endian little|big          byte order of the file (default: the machine's)
  --icc FILE                   embed FILE as the ICC colour profile of every page
  --xmp FILE                   embed FILE as the XMP packet of every page
  --verbose                    also print libtiff's warnings and errors as they arrive
  --help                       this text
]])

local compressions = {
  none = 1, lzw = 5, deflate = 8, jpeg = 7, packbits = 32773, g4 = 4,
}

local opts, args = tt.parse(arg, {
  mode = { "rgb", "gray8", "gray16", "bw" },
  compression = { "none", "lzw", "deflate", "jpeg", "packbits", "g4" },
  quality = "number",
  endian = { "little", "big" },
  icc = "string",
  xmp = "string",
})
if #args < 2 then tt.usage_error("expected OUT.tif and at least one IN.png") end
local mode = opts.mode or "rgb"
local compression = opts.compression or "none"
if compression == "g4" and mode ~= "bw" then tt.usage_error("--compression g4 needs --mode bw") end
if compression == "jpeg" and mode ~= "rgb" and mode ~= "gray8" then
  tt.usage_error("--compression jpeg needs --mode rgb or gray8")
end
if opts.quality and (opts.quality < 1 or opts.quality > 100) then
  tt.usage_error("--quality must lie between 1 and 100")
end

local out, inputs = args[1], { table.unpack(args, 2) }
for _, input in ipairs(inputs) do tt.need_file(input) end

local function slurp(option, path)
  if not path then return nil end
  tt.need_file(path)
  local bytes, err = tt.read_bytes(path)
  if not bytes then tt.fail("%s: cannot read: %s", path, err) end
  -- Binary: the plugin stores the bytes as they are.
  return String(bytes, 0xFFFF)
end
local icc, xmp = slurp("--icc", opts.icc), slurp("--xmp", opts.xmp)

local t = tt.session()
local endian = ({ little = 2, big = 1 })[opts.endian]
local created
if endian then created = t:Create(FolderItem(out), endian) else created = t:Create(FolderItem(out)) end
if not created then tt.fail("%s: cannot create%s", out, tt.why()) end

-- Leaves no half-written file behind.
local function abort(fmt, ...)
  t:Close()
  os.remove(out)
  tt.fail(fmt, ...)
end

for page, input in ipairs(inputs) do
  local picture, err = LoadPicture(input)
  if not picture then abort("%s: not a PNG file this host can read: %s", input, err) end

  t.Compression = compressions[compression]
  if compression == "jpeg" then
    -- JPEG strips must hold a multiple of 8 rows.
    t.RowsPerStrip = 16
    t.JPEGQuality = opts.quality or 75
  end
  t.PageName = input:match("([^/]*)$")
  if icc and not t:SetColorProfile(icc) then abort("%s: cannot embed the ICC profile%s", opts.icc, tt.why()) end
  if xmp and not t:SetXMP(xmp) then abort("%s: cannot embed the XMP packet%s", opts.xmp, tt.why()) end

  t.Pict = picture
  local ok, form
  if mode == "rgb" then
    t.Mask = picture.Mask and tt.alpha_of(picture.Mask) or nil
    form = picture.Mask and "RGB + alpha" or "RGB"
    ok = t:WriteRGB()
  elseif mode == "bw" then
    t.Photometric = t.kPhotometricMinIsWhite
    form = "bilevel"
    ok = t:WriteBW()
  else
    t.BitsPerSample = mode == "gray16" and 16 or 8
    form = mode == "gray16" and "16-bit grey" or "8-bit grey"
    ok = t:WriteGray()
  end
  t.Pict, t.Mask = nil, nil
  if not ok then abort("%s: cannot write page %d%s", out, page - 1, tt.why()) end
  if page < #inputs and not t:AddImage() then
    abort("%s: cannot finish page %d%s", out, page - 1, tt.why())
  end
  print(string.format("page %d: %s, %d x %d %s, %s", page - 1, input, picture.Width, picture.Height, form,
    compression))
end
t:Close()
t = nil
tt.exit(0)
