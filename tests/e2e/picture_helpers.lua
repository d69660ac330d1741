-- Shared by the picture host programs: pictures with hand-derived pixels, and the test tools.
local T = require("testlib")
local H = {}

-- arg[1]: rgba_reference, arg[2]: tiff_tags (tests/picture).
H.TAGS_TOOL = arg[2]

function H.quote(s) return "'" .. s:gsub("'", "'\\''") .. "'" end

-- A w × h picture whose pixel (x, y) is colour(x, y) -> r, g, b.
function H.picture(w, h, colour, depth)
  local p = NewPicture(w, h, depth or 32)
  for y = 0, h - 1 do for x = 0, w - 1 do p:SetPixel(x, y, colour(x, y)) end end
  return p
end

function H.grey(w, h, value)
  return H.picture(w, h, function(x, y) local v = value(x, y); return v, v, v end)
end

-- Asserts every pixel of `p` against expected(x, y) -> r, g, b.
function H.expect_pixels(p, w, h, expected, what)
  T.truthy(p, what .. " exists")
  T.eq(p.Width, w, what .. " width"); T.eq(p.Height, h, what .. " height")
  for y = 0, h - 1 do
    for x = 0, w - 1 do
      local r, g, b = p:Pixel(x, y)
      local er, eg, eb = expected(x, y)
      if r ~= er or g ~= eg or b ~= eb then
        T.fail(string.format("%s (%d, %d): expected %d,%d,%d, got %d,%d,%d", what, x, y, er, eg, eb, r, g, b), 2)
      end
    end
  end
end

-- The tags plain libtiff reads from the first image of a file.
function H.tags(path)
  local pipe = assert(io.popen(H.TAGS_TOOL .. " " .. H.quote(path)))
  local tags = {}
  for line in pipe:lines() do
    local k, v = line:match("^(%w+)=(.*)$")
    if k then tags[k] = tonumber(v) or v end
  end
  pipe:close()
  return tags
end

function H.write_bytes(path, bytes)
  local f = assert(io.open(path, "wb")); f:write(bytes); f:close()
end

-- libtiff hands out unassociated alpha premultiplied, rounded.
function H.premultiplied(v, alpha) return (v * alpha + 127) // 255 end

return H
