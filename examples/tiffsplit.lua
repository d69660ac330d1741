-- tiffsplit.lua: splits a multi-page TIFF into one TIFF file per page, in memory.
--
--   tqvhost run examples/tiffsplit.lua IN.tif OUTPREFIX
package.path = (arg[0]:match("^(.*)/[^/]*$") or ".") .. "/lib/?.lua;" .. package.path
local tt = require("tqvtools")

tt.tool("tiffsplit.lua", [[
usage: tqvhost run tiffsplit.lua [options] IN.tif OUTPREFIX

Writes each page of IN.tif to its own file OUTPREFIXaaa.tif, OUTPREFIXaab.tif, ... (the names
libtiff's tiffsplit uses). The whole work happens in memory: the input is read into a string and
opened from there, and every page is written into a memory buffer before it goes to disk.

]] .. tt.COPY_PAGE_HELP .. [[

options:
  --verbose   also print libtiff's warnings and errors as they arrive
  --help      this text
]])

local _, args = tt.parse(arg, {})
if #args ~= 2 then tt.usage_error("expected IN.tif and OUTPREFIX, got %d argument(s)", #args) end
local input, prefix = args[1], args[2]

-- "aaa", "aab", ... "zzz".
local function suffix(n)
  local a = string.byte("a")
  return string.char(a + n // 676 % 26, a + n // 26 % 26, a + n % 26)
end

local src = tt.open_in_memory(input)
local count = src:ImageCount()
if count == 0 then tt.fail("%s: holds no image%s", input, tt.why()) end
if count > 26 * 26 * 26 then tt.fail("%s: %d pages are more than this tool can name", input, count) end

local failed = 0
for page = 0, count - 1 do
  tt.why() -- forget messages of earlier pages
  -- Selecting a page also decodes it into src.Pict and src.Mask.
  local ok, why = src:SetImageIndex(page), nil
  if not ok then
    why = "its directory cannot be read" .. tt.why()
  else
    local dst = tt.session()
    if not dst:CreateString(0) then tt.fail("cannot set up a TIFF in memory%s", tt.why()) end
    ok, why = tt.copy_page(src, dst)
    dst:Close()
    if ok then
      local bytes = dst.OutputBuffer
      local name = prefix .. suffix(page) .. ".tif"
      local written, err = tt.write_bytes(name, tostring(bytes))
      if not written then tt.fail("%s: cannot write: %s", name, err) end
      print(string.format("page %d: %d x %d %s -> %s (%d bytes)", page, src.Width, src.Height,
        tt.page_kind(src), name, #bytes))
    end
  end
  if not ok then
    failed = failed + 1
    print(string.format("page %d: skipped: %s", page, why))
  end
end
src:Close()
src = nil
if failed > 0 then tt.fail("%s: %d of %d pages could not be split off", input, failed, count) end
tt.exit(0)
