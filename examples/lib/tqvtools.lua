-- Helpers shared by the example tools: command lines, error reporting, sessions that collect
-- libtiff's messages, tag names for printing, files as byte strings, and the page copy used by
-- tiffsplit and tiffjoin.
--
-- A tool finds this module next to itself:
--   package.path = (arg[0]:match("^(.*)/[^/]*$") or ".") .. "/lib/?.lua;" .. package.path
--   local tt = require("tqvtools")
local M = {}

M.name = "tool"       -- set by M.tool(); prefixes every message
M.verbose = false     -- --verbose: libtiff's messages go to stderr as they arrive

-- ---- Command line and exits ------------------------------------------------------------------

local usage_text = ""

-- Names the tool and keeps its usage text for --help and for command-line errors.
function M.tool(name, usage)
  M.name, usage_text = name, usage
end

-- Leaves with `code`. With TQV_CHECK_REFERENCES set (the tests set it), first checks that the
-- host recorded no accounting fault and, on success (when the tool has closed and dropped its
-- sessions), that the plugin holds no host reference any more.
function M.exit(code)
  if os.getenv("TQV_CHECK_REFERENCES") then
    collectgarbage("collect"); collectgarbage("collect")
    local live = code == 0 and host.live() or 0
    local faults = host.accountingErrors()
    if live ~= 0 or #faults > 0 then
      io.stderr:write(string.format("%s: internal: the plugin holds %d host reference(s) at the end, %d accounting fault(s)\n",
        M.name, live, #faults))
      os.exit(3)
    end
  end
  io.stdout:flush()
  os.exit(code)
end

-- One error line on stderr, exit status 1.
function M.fail(fmt, ...)
  io.stderr:write(M.name, ": ", string.format(fmt, ...), "\n")
  M.exit(1)
end

-- A command-line mistake: one line on stderr, exit status 2.
function M.usage_error(fmt, ...)
  io.stderr:write(M.name, ": ", string.format(fmt, ...), " (see --help)\n")
  M.exit(2)
end

-- Parses `args` (the global arg) against `spec`: spec[name] = "flag" | "number" | "string" |
-- { "choice1", "choice2", ... }. Options may come anywhere, as `--name value` or `--name=value`;
-- `--` ends the options. --help and --verbose are always known. Returns the options table and the
-- positional arguments.
function M.parse(args, spec)
  local opts, rest = {}, {}
  local i, only_positional = 1, false
  while args[i] do
    local a = args[i]
    if only_positional or a:sub(1, 2) ~= "--" or a == "-" then
      rest[#rest + 1] = a
    elseif a == "--" then
      only_positional = true
    else
      local name, value = a:match("^%-%-([^=]+)=(.*)$")
      name = name or a:sub(3)
      if name == "help" then
        io.stdout:write(usage_text)
        M.exit(0)
      elseif name == "verbose" then
        M.verbose = true
      else
        local kind = spec[name]
        if not kind then M.usage_error("unknown option --%s", name) end
        if kind == "flag" then
          opts[name] = true
        else
          if not value then
            i = i + 1
            value = args[i]
            if not value then M.usage_error("--%s needs a value", name) end
          end
          if kind == "number" then
            local n = math.tointeger(tonumber(value))
            if not n then M.usage_error("--%s needs a whole number, not '%s'", name, value) end
            value = n
          elseif type(kind) == "table" then
            local ok = false
            for _, c in ipairs(kind) do ok = ok or c == value end
            if not ok then
              M.usage_error("--%s must be one of %s, not '%s'", name, table.concat(kind, ", "), value)
            end
          end
          opts[name] = value
        end
      end
    end
    i = i + 1
  end
  return opts, rest
end

-- ---- Files ---------------------------------------------------------------------------------------

function M.exists(path) return FolderItem(path).Exists end

function M.is_dir(path)
  local f = io.open(path .. "/.", "r")
  if f then f:close() return true end
  return false
end

-- The whole file as a byte string, or nil and the reason.
function M.read_bytes(path)
  local f, err = io.open(path, "rb")
  if not f then return nil, err end
  local bytes, rerr = f:read("a")
  f:close()
  if not bytes then return nil, rerr end
  return bytes
end

function M.write_bytes(path, bytes)
  local f, err = io.open(path, "wb")
  if not f then return nil, err end
  local ok, werr = f:write(bytes)
  local cok, cerr = f:close()
  if not ok or not cok then return nil, werr or cerr end
  return true
end

-- "dir/name.tif" -> "name"
function M.basename(path)
  local base = path:match("([^/]*)$")
  return base:match("^(.+)%.[^.]*$") or base
end

-- Fails unless `path` names an existing file (directories do not count).
function M.need_file(path)
  if not M.exists(path) then M.fail("%s: no such file", path) end
  if M.is_dir(path) then M.fail("%s: is a folder, not a file", path) end
end

-- ---- Sessions ----------------------------------------------------------------------------------

-- libtiff reports to the session that last became current, which is not always the one whose
-- call failed; a tool wants the latest error whichever session received it.
local last_error = nil

-- A new TiffPictureTQV whose libtiff errors are kept for M.why(); with --verbose, errors and
-- warnings are also printed as they arrive.
function M.session()
  local t = TiffPictureTQV()
  t.Error = function(_, module, message)
    local text = tostring(message)
    if module and #tostring(module) > 0 then text = tostring(module) .. ": " .. text end
    last_error = text
    if M.verbose then io.stderr:write(M.name, ": libtiff error: ", text, "\n") end
  end
  t.Warning = function(_, module, message)
    if M.verbose then
      io.stderr:write(M.name, ": libtiff warning: ", tostring(module), ": ", tostring(message), "\n")
    end
  end
  return t
end

-- The latest libtiff error as " (libtiff: ...)" for appending to a message, or "" when there was
-- none since the last call.
function M.why()
  local e = last_error
  last_error = nil
  return e and (" (libtiff: " .. e .. ")") or ""
end

-- Opens a TIFF file for reading, or fails with one line saying why.
function M.open(path)
  M.need_file(path)
  local t = M.session()
  if not t:Open(FolderItem(path)) then M.fail("%s: not a TIFF file libtiff can read%s", path, M.why()) end
  return t
end

-- Opens a TIFF file in memory (its bytes as a string), or fails with one line saying why.
function M.open_in_memory(path)
  M.need_file(path)
  local bytes, err = M.read_bytes(path)
  if not bytes then M.fail("%s: cannot read: %s", path, err) end
  local t = M.session()
  -- The bytes are binary: 0xFFFF keeps the host from treating them as text.
  if not t:OpenString(String(bytes, 0xFFFF)) then
    M.fail("%s: not a TIFF file libtiff can read%s", path, M.why())
  end
  return t
end

-- ---- Names of tag values, as libtiff's tiffinfo prints them -------------------------------------

M.compression_names = {
  [1] = "None", [2] = "CCITT modified Huffman RLE", [3] = "CCITT Group 3", [4] = "CCITT Group 4",
  [5] = "LZW", [6] = "Old-style JPEG", [7] = "JPEG", [8] = "AdobeDeflate", [32766] = "NeXT",
  [32771] = "CCITT RLE/W", [32773] = "PackBits", [32809] = "ThunderScan", [32895] = "IT8CTPAD",
  [32896] = "IT8LW", [32897] = "IT8MP", [32898] = "IT8BL", [32908] = "PixarFilm",
  [32909] = "PixarLog", [32946] = "Deflate", [32947] = "DCS", [34661] = "JBIG",
  [34676] = "SGILog", [34677] = "SGILog24", [34712] = "JPEG2000", [34925] = "LZMA",
  [50000] = "ZSTD", [50001] = "WEBP",
}
M.photometric_names = {
  [0] = "min-is-white", [1] = "min-is-black", [2] = "RGB color",
  [3] = "palette color (RGB from colormap)", [4] = "transparency mask", [5] = "separated",
  [6] = "YCbCr", [8] = "CIE L*a*b*", [9] = "ICC L*a*b*", [10] = "ITU L*a*b*",
  [32844] = "CIE Log2(L)", [32845] = "CIE Log2(L) (u',v')",
}
M.orientation_names = {
  "row 0 top, col 0 lhs", "row 0 top, col 0 rhs", "row 0 bottom, col 0 rhs", "row 0 bottom, col 0 lhs",
  "row 0 lhs, col 0 top", "row 0 rhs, col 0 top", "row 0 rhs, col 0 bottom", "row 0 lhs, col 0 bottom",
}
M.planar_names = { "single image plane", "separate image planes" }
M.fillorder_names = { "msb-to-lsb", "lsb-to-msb" }
M.resunit_names = { "unitless", "pixels/inch", "pixels/cm" }
M.extrasample_names = { [0] = "unspecified", [1] = "assoc-alpha", [2] = "unassoc-alpha" }

-- "name" for a known value, else the number (as tiffinfo does for values it does not know).
function M.named(names, value)
  local n = names[value]
  return n and n or tostring(value)
end

-- The string tags; libtiff's tiffinfo labels them with these same names.
M.string_tags = {
  "DocumentName", "ImageDescription", "Make", "Model", "PageName", "Software", "DateTime",
  "HostComputer", "Copyright",
}

-- The extra-sample codes of the current image as a list (empty when it has none).
function M.extra_samples(t)
  local mb = t.ExtraSamples
  local list = {}
  if mb then
    for i = 0, mb.Size // 2 - 1 do list[#list + 1] = mb:UInt16(2 * i) end
  end
  return list
end

-- ---- Pictures ----------------------------------------------------------------------------------

-- Pictures read from TIFF (and PNG) carry a mask in which black is opaque; the RGB export takes
-- its alpha sample from the mask with white opaque. Copying transparency therefore inverts it.
function M.alpha_of(mask)
  local alpha = NewPicture(mask.Width, mask.Height, 32)
  for y = 0, mask.Height - 1 do
    for x = 0, mask.Width - 1 do
      local v = 255 - mask:Pixel(x, y)
      alpha:SetPixel(x, y, v, v, v)
    end
  end
  return alpha
end

-- ---- Copying pages -----------------------------------------------------------------------------

-- What copy_page does, for the tools' help texts.
M.COPY_PAGE_HELP = [[
Pages are decoded and written again: bilevel pages stay bilevel, grey pages become 8-bit grey,
everything else 8-bit RGB (with alpha when the page has an extra sample). The text tags,
resolution and XMP packet are kept, the ICC profile where it still fits the pixels, and the
compression where it can be written (otherwise CCITT Group 4 for bilevel pages, LZW for the rest).
Prints one line per page.
]]

-- How a page is best written again: "bw" (one bit of grey), "gray" (one grey sample) or "rgb"
-- (everything else, with alpha when the page has an extra sample).
function M.page_kind(t)
  local photometric, spp, bps = t.Photometric, t.SamplesPerPixel, t.BitsPerSample
  if (photometric == 0 or photometric == 1) and spp == 1 then
    return bps == 1 and "bw" or "gray"
  end
  return "rgb"
end

-- Compressions each kind of page can be written with; anything else becomes the fallback.
local writable = {
  bw = { [1] = true, [4] = true, [5] = true, [8] = true, [32773] = true, [32946] = true, fallback = 4 },
  gray = { [1] = true, [5] = true, [7] = true, [8] = true, [32773] = true, [32946] = true, fallback = 5 },
  rgb = { [1] = true, [5] = true, [7] = true, [8] = true, [32773] = true, [32946] = true, fallback = 5 },
}

-- Copies the current page of `src` (already decoded into src.Pict / src.Mask, as SetImageIndex
-- does) into the current image of `dst`, a session created for writing. The pixels are written
-- as bilevel, 8-bit grey or 8-bit RGB(A), whichever holds the page; the descriptive tags,
-- resolution, XMP packet and (where it still fits the pixels) ICC profile go along, and the
-- compression is kept where it can be written. Returns true, or false and the reason.
function M.copy_page(src, dst)
  local pict = src.Pict
  if not pict then return false, "libtiff cannot render it as a picture" .. M.why() end
  local kind = M.page_kind(src)
  local alpha = kind == "rgb" and #M.extra_samples(src) > 0 and src.Mask
  local photometric, compression = src.Photometric, src.Compression

  for _, tag in ipairs(M.string_tags) do
    local v = src[tag]
    if v then dst[tag] = v end
  end
  local xres, yres = src.HorizontalResolution, src.VerticalResolution
  if xres >= 1 and yres >= 1 then
    dst.HorizontalResolution, dst.VerticalResolution = xres, yres
    dst.ResolutionUnit = src.ResolutionUnit
  end
  local xmp = src:GetXMP()
  if xmp then dst:SetXMP(xmp) end
  local icc = src:GetColorProfile()
  local icc_fits = (kind == "rgb" and (photometric == 2 or photometric == 6))
    or (kind ~= "rgb" and (photometric == 0 or photometric == 1))
  if icc and icc_fits then dst:SetColorProfile(icc) end

  if compression == 7 and alpha then compression = 5 end
  if not writable[kind][compression] then compression = writable[kind].fallback end
  dst.Compression = compression
  -- JPEG strips must hold a multiple of 8 rows; the other writers default to one row a strip.
  if compression == 7 then dst.RowsPerStrip = 16 end

  dst.Pict = pict
  local ok
  if kind == "bw" then
    dst.Photometric = photometric
    ok = dst:WriteBW()
  elseif kind == "gray" then
    dst.Photometric = photometric
    dst.BitsPerSample = 8
    ok = dst:WriteGray()
  else
    dst.Mask = alpha and M.alpha_of(alpha) or nil
    ok = dst:WriteRGB()
  end
  dst.Pict, dst.Mask = nil, nil
  if not ok then return false, "cannot write it" .. M.why() end
  return true
end

return M
