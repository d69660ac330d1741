-- Small TIFF files written byte by byte for the session tests (little-endian, 1x1 8-bit grey).
local M = {}

local SHORT, LONG = 3, 4

local function entry(tag, type, value)
  if type == SHORT then return string.pack("<I2I2I4I2I2", tag, type, 1, value, 0) end
  return string.pack("<I2I2I4I4", tag, type, 1, value)
end

-- A valid one-pixel image; `unknown` extra tags (65000, 65001, ...) make libtiff warn once each.
function M.grey_1x1(unknown)
  local tags = {
    { 256, SHORT, 1 }, { 257, SHORT, 1 }, { 258, SHORT, 8 }, { 259, SHORT, 1 }, { 262, SHORT, 1 },
    { 273, LONG, 0 }, { 277, SHORT, 1 }, { 278, SHORT, 1 }, { 279, LONG, 1 },
  }
  for i = 1, unknown or 0 do tags[#tags + 1] = { 64999 + i, SHORT, 7 } end
  local ifd_size = 2 + 12 * #tags + 4
  local pixel_offset = 8 + ifd_size
  local parts = { "II*\0", string.pack("<I4", 8), string.pack("<I2", #tags) }
  for _, t in ipairs(tags) do
    parts[#parts + 1] = entry(t[1], t[2], t[1] == 273 and pixel_offset or t[3])
  end
  parts[#parts + 1] = string.pack("<I4", 0) .. "\x80"
  return table.concat(parts)
end

function M.size(path)
  local f = assert(io.open(path, "rb")); local n = f:seek("end"); f:close(); return n
end

-- Scratch paths unique to this process: ctest runs one script in several configurations at once.
local unique = os.tmpname()
os.remove(unique)
local tag = unique:match("[^/]+$")
function M.tmp(T, name)
  return T.tmpfile(tag .. "_" .. name)
end

-- The byte order a "w" handle writes on this machine.
M.native = string.pack("=I2", 1) == "\1\0" and "II" or "MM"

return M
