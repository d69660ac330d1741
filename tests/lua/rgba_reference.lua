-- libtiff's own RGBA rendering of a file, by the rgba_reference tool (tests/picture): top row
-- first, raw R, G, B, A bytes.
local T = require("testlib")

local M = {}

-- status: "ok", "too-large" or "no"; with the size, and the raw pixels when rendered.
function M.render(tool, path)
  -- One file per back end: the configurations may run side by side.
  local config = host.config()
  local raw_path = T.tmpfile("rgba_reference_" .. config.app .. config.desktopDepth .. ".raw")
  os.remove(raw_path)
  local pipe = assert(io.popen(tool .. " " .. T.quote(path) .. " " .. T.quote(raw_path)))
  local out = pipe:read("a")
  local _, _, code = pipe:close()
  local w, h = out:match("^(%d+) (%d+)")
  if code == 3 then return "too-large", tonumber(w), tonumber(h) end
  if code ~= 0 then return "no" end
  return "ok", tonumber(w), tonumber(h), T.read_bytes(raw_path)
end

return M
