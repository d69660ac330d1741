-- Shared by the picture host programs: pictures with hand-derived pixels, and the test tools.
local T = require("testlib")
local H = {}

-- arg[1]: rgba_reference, arg[2]: tiff_tags (tests/picture).
H.TAGS_TOOL = arg[2]

function H.grey(w, h, value)
  return T.picture(w, h, function(x, y) local v = value(x, y); return v, v, v end)
end

-- The tags plain libtiff reads from the first image of a file.
function H.tags(path)
  local pipe = assert(io.popen(H.TAGS_TOOL .. " " .. T.quote(path)))
  local tags = {}
  for line in pipe:lines() do
    local k, v = line:match("^(%w+)=(.*)$")
    if k then tags[k] = tonumber(v) or v end
  end
  pipe:close()
  return tags
end

-- libtiff hands out unassociated alpha premultiplied, rounded.
function H.premultiplied(v, alpha) return (v * alpha + 127) // 255 end

return H
