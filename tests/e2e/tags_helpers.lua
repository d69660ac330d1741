-- Shared by the tags, directories and scanline host programs: libtiff's own view of a file
-- (tests/tags/tag_reference, passed as the script's first argument) and small file writers.
local T = require("testlib")
local M = {}

M.tool = arg[1]

local function unhex(h) return (h:gsub("%x%x", function(b) return string.char(tonumber(b, 16)) end)) end
M.text_keys = { "Copyright", "DateTime", "DocumentName", "HostComputer", "ImageDescription", "Make", "Model",
                "PageName", "Software" }
local is_text = {}
for _, k in ipairs(M.text_keys) do is_text[k] = true end

-- key -> value as libtiff reports it for directory `dir` (default: the first); text decoded.
function M.reference(path, dir)
  local p = assert(io.popen(T.quote(M.tool) .. " " .. T.quote(path) .. (dir and (" " .. dir) or "")))
  local out = {}
  for line in p:lines() do
    local k, v = line:match("^([^=]+)=(.*)$")
    if k then out[k] = is_text[k] and unhex(v) or v end
  end
  p:close()
  return out
end

-- The readable TIFFs of the shared test data (libtiff's own tool read them without error).
function M.testfiles()
  local files = {}
  for _, f in ipairs(T.testdata_index()) do
    if f[26] == "0" and tonumber(f[6] or "0") >= 1 then files[#files + 1] = T.testdata(f[1] .. "/" .. f[2]) end
  end
  return files
end

-- A new session on an existing file, opened for reading.
function M.opened(path)
  local t = TiffPictureTQV()
  T.truthy(t:Open(FolderItem(path)), "Open")
  return t
end

-- A new file of `pages` (a list of {w=, h=, bps=, spp=, compression=, fill=function(row) -> bytes})
-- written with the Scanline setter, AddImage between pages.
function M.write_pages(path, pages)
  local t = TiffPictureTQV()
  assert(t:Create(FolderItem(path)))
  for i, page in ipairs(pages) do
    t.Width, t.Height = page.w, page.h
    t.BitsPerSample, t.SamplesPerPixel = page.bps or 8, page.spp or 1
    t.Photometric = (page.spp or 1) >= 3 and 2 or 1
    t.Compression = page.compression or 1
    t.RowsPerStrip = page.rows_per_strip or page.h
    t.PlanarConfig = 1
    if page.name then t.PageName = page.name end
    for row = 0, page.h - 1 do
      local bytes = page.fill(row)
      local mb = MemoryBlock(#bytes)
      mb:SetBytes(0, bytes)
      assign(t, "Scanline", mb, row, 0)
    end
    if i < #pages then assert(t:AddImage(), "AddImage") end
  end
  t:Close()
  return path
end

-- Row `row` of a grey ramp: byte x is (x + row * step) % 256.
function M.ramp(width, step)
  return function(row)
    local b = {}
    for x = 0, width - 1 do b[#b + 1] = string.char((x + row * (step or 1)) % 256) end
    return table.concat(b)
  end
end

return M
