-- tiff2png.lua: converts every page of a TIFF file to a PNG file, transparency included.
--
--   tqvhost run examples/tiff2png.lua [--preview N] FILE OUTDIR
package.path = (arg[0]:match("^(.*)/[^/]*$") or ".") .. "/lib/?.lua;" .. package.path
local tt = require("tqvtools")

tt.tool("tiff2png.lua", [[
usage: tqvhost run tiff2png.lua [options] FILE OUTDIR

Reads every page of FILE as a full-colour picture (any layout libtiff can render) and saves it as
OUTDIR/NAME-N.png, N counting pages from 0. Transparency in the TIFF becomes the PNG's alpha.
OUTDIR must exist. Prints one line per page.

options:
  --preview N   save a preview reduced N times in each direction (every N-th pixel)
  --verbose     also print libtiff's warnings and errors as they arrive
  --help        this text
]])

local opts, args = tt.parse(arg, { preview = "number" })
if #args ~= 2 then tt.usage_error("expected FILE and OUTDIR, got %d argument(s)", #args) end
local path, outdir = args[1], args[2]
if opts.preview and opts.preview < 1 then tt.usage_error("--preview needs a factor of 1 or more") end
if not tt.is_dir(outdir) then tt.fail("%s: no such folder", outdir) end

local t = tt.open(path)
local count = t:ImageCount()
if count == 0 then tt.fail("%s: holds no image%s", path, tt.why()) end
local name = tt.basename(path)

local failed = 0
for page = 0, count - 1 do
  tt.why() -- forget messages of earlier pages
  local function skip(why)
    failed = failed + 1
    print(string.format("page %d: skipped: %s", page, why))
  end
  -- Select the page without decoding it, then decode it in full or reduced.
  if page > 0 and not t:SetImageIndex(page, true) then
    skip("its directory cannot be read" .. tt.why())
  elseif not (opts.preview and t:ReadPreviewRGB(opts.preview) or not opts.preview and t:ReadRGB()) then
    skip("libtiff cannot render it" .. tt.why())
  elseif not t.Pict then
    skip(string.format("%d x %d is too large for a picture", t.Width, t.Height))
  else
    -- One picture carrying the page's mask; saving it writes the mask as the alpha channel.
    local picture = t:CombinePictureWithMask()
    local png = string.format("%s/%s-%d.png", outdir, name, page)
    local ok, err = pcall(picture.Save, picture, png)
    if not ok then
      t:Close()
      tt.fail("%s", tostring(err):gsub("^Save: ", ""))
    end
    print(string.format("page %d: %d x %d -> %s", page, picture.Width, picture.Height, png))
  end
end
t:Close()
t = nil
if failed > 0 then tt.fail("%s: %d of %d pages could not be converted", path, failed, count) end
tt.exit(0)
