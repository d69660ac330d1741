-- Shared by the pipeline host programs: the test images and libtiff's own view of files, both
-- from the pipe_images tool (arg[1]); arg[2] names the picture back end, so that each
-- configuration writes its own scratch folder.
local T = require("testlib")
local P = {}

function P.setup(arg, script)
  P.tool = assert(arg[1], "usage: " .. script .. ".lua PIPE_IMAGES BACKEND")
  P.backend = arg[2] or "default"
  P.dir = T.tmpfile(script .. "_" .. P.backend)
  assert(os.execute("rm -rf " .. T.quote(P.dir) .. " && mkdir -p " .. T.quote(P.dir)))
  return P.dir
end

-- Makes every test image; returns their folder.
function P.images(arg, script)
  local dir = P.setup(arg, script)
  assert(os.execute(T.quote(P.tool) .. " make " .. T.quote(dir)), "pipe_images make failed")
  return dir
end

function P.path(name) return P.dir .. "/" .. name end

-- A new session on one of the images, opened for reading.
function P.open(name)
  local t = TiffPictureTQV()
  T.eq(t:Open(FolderItem(P.path(name))), true, "Open " .. name)
  return t
end

-- libtiff's TIFFReadRGBAImage of a file: width, height and the raster (bottom row first).
function P.rgba(path)
  local out = P.path("reference.raw")
  local pipe = assert(io.popen(T.quote(P.tool) .. " rgba " .. T.quote(path) .. " " .. T.quote(out)))
  local w, h = pipe:read("a"):match("^(%d+) (%d+)")
  assert(pipe:close() and w, "pipe_images rgba failed for " .. path)
  return tonumber(w), tonumber(h), T.read_bytes(out)
end

-- The first image of a file as libtiff reads it: a table of its tags and `rows`, each a list of
-- samples (nil for a row libtiff cannot read).
function P.dump(path)
  local pipe = assert(io.popen(T.quote(P.tool) .. " dump " .. T.quote(path)))
  local text = pipe:read("a")
  assert(pipe:close(), "pipe_images dump failed for " .. path)
  local lines = {}
  for line in text:gmatch("[^\n]*") do lines[#lines + 1] = line end
  local info = { rows = {} }
  for key, value in lines[1]:gmatch("(%a+) ([%d%.e+-]+)") do info[key] = tonumber(value) end
  for i = 2, #lines do
    if lines[i] == "unreadable" then
      info.rows[#info.rows + 1] = false
    elseif lines[i] ~= "" then
      local row = {}
      for v in lines[i]:gmatch("%d+") do row[#row + 1] = tonumber(v) end
      info.rows[#info.rows + 1] = row
    end
  end
  return info
end

-- The same, or nil when libtiff cannot read the file.
function P.try_dump(path)
  local ok, info = pcall(P.dump, path)
  return ok and info or nil
end

-- Runs a shell command; true when it exits with 0.
function P.run(command)
  return os.execute(command .. " >/dev/null 2>&1") == true
end

return P
