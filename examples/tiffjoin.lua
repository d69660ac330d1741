-- tiffjoin.lua: joins the pages of several TIFF files into one multi-page TIFF, in memory.
--
--   tqvhost run examples/tiffjoin.lua OUT.tif IN.tif...
package.path = (arg[0]:match("^(.*)/[^/]*$") or ".") .. "/lib/?.lua;" .. package.path
local tt = require("tqvtools")

tt.tool("tiffjoin.lua", [[
usage: tqvhost run tiffjoin.lua [options] OUT.tif IN.tif...

Writes every page of every IN.tif, in the order given, as the pages of OUT.tif. The whole work
happens in memory: each input is read into a string and opened from there, the output is built in
a memory buffer and written to disk at the end, only when every page could be copied.

]] .. tt.COPY_PAGE_HELP .. [[

options:
  --verbose   also print libtiff's warnings and errors as they arrive
  --help      this text
]])

local _, args = tt.parse(arg, {})
if #args < 2 then tt.usage_error("expected OUT.tif and at least one IN.tif") end
local out, inputs = args[1], { table.unpack(args, 2) }
for _, input in ipairs(inputs) do tt.need_file(input) end

local dst = tt.session()
if not dst:CreateString(0) then tt.fail("cannot set up a TIFF in memory%s", tt.why()) end

local written = 0
for _, input in ipairs(inputs) do
  local src = tt.open_in_memory(input)
  local count = src:ImageCount()
  if count == 0 then tt.fail("%s: holds no image%s", input, tt.why()) end
  for page = 0, count - 1 do
    -- Selecting a page also decodes it into src.Pict and src.Mask.
    if not src:SetImageIndex(page) then
      tt.fail("%s: page %d: its directory cannot be read%s", input, page, tt.why())
    end
    -- Every page after the first starts a new directory.
    if written > 0 and not dst:AddImage() then
      tt.fail("%s: cannot start page %d%s", out, written, tt.why())
    end
    local ok, why = tt.copy_page(src, dst)
    if not ok then tt.fail("%s: page %d: %s", input, page, why) end
    print(string.format("page %d: %s page %d, %d x %d %s", written, input, page, src.Width, src.Height,
      tt.page_kind(src)))
    written = written + 1
  end
  src:Close()
end

-- libtiff writes the last directory when the TIFF is closed; only then is the buffer complete.
dst:Close()
local bytes = dst.OutputBuffer
dst = nil
if not bytes then tt.fail("%s: nothing was written%s", out, tt.why()) end
-- Read the result back before it goes to disk: a page that libtiff could not link into the file
-- must not go missing silently.
local check = tt.session()
local pages = check:OpenString(bytes) and check:ImageCount() or 0
check:Close()
check = nil
if pages ~= written then
  tt.fail("%s: the TIFF made in memory holds %d of the %d pages written%s", out, pages, written, tt.why())
end
local ok, err = tt.write_bytes(out, tostring(bytes))
if not ok then tt.fail("%s: cannot write: %s", out, err) end
print(string.format("%s: %d page(s), %d bytes", out, written, #bytes))
tt.exit(0)
