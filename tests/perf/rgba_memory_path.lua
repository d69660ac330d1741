-- RGBA memory blocks packed by the plugin against libtiff's own rendering: what the host sees
-- besides the pixels (which pipe_rgba_memory checks against libtiff in another process).
--
-- arg[1] is "record" or "compare", arg[2] a folder shared by the two runs. The record run is
-- started with TQV_FORCE_RGBA_PATH set, so libtiff renders every block; for every test file it
-- notes what ReadRGB(ErrorMessage) and a Step of a band answered, their sizes, the ErrorMessage
-- text, and every Error and Warning event during each read, in order. The compare run, with the
-- packing allowed, must note the same. Packing that swallowed a message libtiff gives only once
-- for a handle would show here as a missing event.
local T = require("testlib")

local MODE = assert(arg[1], "usage: rgba_memory_path.lua record|compare FOLDER")
local FOLDER = assert(arg[2], "usage: rgba_memory_path.lua record|compare FOLDER")

local function size_of(block)
  return block and tostring(block.Size) or "nil"
end

-- One line for a file: the two reads with the events each one raised.
local function read_file(rel)
  local t = TiffPictureTQV()
  local messages = T.message_log(t)
  if not t:Open(FolderItem(T.testdata(rel))) then return rel .. "\tunopened" end
  local fields = { rel }
  local function note(what, result)
    fields[#fields + 1] = what .. " " .. result .. " [" .. messages() .. "]"
  end
  messages()  -- what opening said is not compared
  local message = Ref(nil)
  local whole = t:ReadRGB(message)
  note("ReadRGB", size_of(whole) .. " '" .. tostring(message.value) .. "'")
  local w, h = t.Width, t.Height
  local begun = t:ReadRGBMemoryBegin(Ref(nil))
  note("Begin", tostring(begun))
  if begun and w and h and w > 0 and h > 0 then
    local row, rows = h // 3, math.max(1, h // 2)
    note("Step", size_of(t:ReadRGBMemoryStep(w // 4, row, math.max(1, w // 2), rows)))
  end
  t:ReadRGBMemoryEnd()
  t:Close()
  return table.concat(fields, "\t")
end

if MODE == "record" then
  T.test("RGBA memory blocks through libtiff, every test file", function()
    local lines = {}
    for n, rel in ipairs(T.testdata_files()) do lines[n] = read_file(rel) end
    local f = assert(io.open(FOLDER .. "/manifest.tsv", "w"))
    f:write(table.concat(lines, "\n"), "\n")
    f:close()
    T.truthy(#lines > 100, "files read: " .. #lines)
  end)
else
  local expected = {}
  for line in io.lines(FOLDER .. "/manifest.tsv") do expected[#expected + 1] = line end
  for n, rel in ipairs(T.testdata_files()) do
    T.test(rel, function() T.eq(read_file(rel), expected[n], "answers and events") end)
  end
end

T.finish()
