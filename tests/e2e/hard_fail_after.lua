-- host.failAfter(kind, n) from a host program: the nth host allocation of a kind fails, and every
-- operation answers with its failure value, keeps its references balanced and leaves the session
-- usable. (The in-process hardening tests sweep every allocation of every operation, plugin-side
-- memory included; this is the program's view of the same switch.)
local T = require("testlib")

local RGB = T.testdata("libtiff/images/rgb-3c-8b.tiff")
local PALETTE = T.testdata("libtiff/images/palette-1c-8b.tiff")

-- Runs op with the nth allocation of kind failing, for n = 1, 2, ... until op makes fewer than n
-- allocations of that kind. Returns the results seen.
local function sweep(kind, prepare, op)
  local results = {}
  for n = 1, 200 do
    local t = prepare()
    host.failAfter(kind, n)
    local ok, r = pcall(op, t)
    local hit = not host.failArmed(kind)
    host.failAfter(kind, 0)
    T.truthy(ok or (type(r) == "table" and r.class == "OutOfMemoryException"), "no error but memory: " .. tostring(r))
    results[#results + 1] = ok and r or false
    if not hit then break end
  end
  return results
end

local function opened(path)
  return function()
    local t = TiffPictureTQV()
    T.truthy(t:Open(FolderItem(path)))
    return t
  end
end

local function any_failure(results, failed)
  for _, r in ipairs(results) do if failed(r) then return true end end
  return false
end

T.group("host.failAfter", function()
  T.test("unknown kinds and negative counts are errors", function()
    T.falsy(pcall(host.failAfter, "disk", 1))
    T.falsy(pcall(host.failAfter, "picture", -1))
    T.falsy(host.failArmed("picture"))
  end)

  -- ReadRGB answers true even when a picture cannot be made; the slot is then nil (or the read
  -- found another way to make it): never a picture of the wrong size.
  T.test("ReadRGB when a picture cannot be made", function()
    local before = host.injectedFailures()
    sweep("picture", opened(RGB), function(t)
      T.truthy(t:ReadRGB())
      for _, p in ipairs({ t.Pict, t.Mask }) do
        if p ~= nil then T.eq(p.Width * 1000 + p.Height, 157151, "picture size") end
      end
      return true
    end)
    T.truthy(host.injectedFailures() > before)
  end)

  T.test("the session reads again after a failed picture", function()
    local t = opened(RGB)()
    host.failAfter("picture", 1)
    T.truthy(t:ReadRGB())
    T.truthy(t:ReadRGB())
    T.eq(t.Pict.Width, 157)
  end)

  -- All three blocks are made before any is filled: the one that cannot be made comes back nil,
  -- the other two empty.
  T.test("GetColorMap when a block cannot be made", function()
    local t = opened(PALETTE)()
    for n = 1, 3 do
      local refs = { Ref(nil), Ref(nil), Ref(nil) }
      host.failAfter("memoryblock", n)
      T.eq(t:GetColorMap(refs[1], refs[2], refs[3]), false, "block " .. n .. " failing")
      host.failAfter("memoryblock", 0)
      for i, ref in ipairs(refs) do
        if i == n then
          T.eq(ref.value, nil, "block " .. n .. " failing: that block")
        else
          T.eq(ref.value:Bytes(0), string.rep("\0", 512), "block " .. n .. " failing: block " .. i)
        end
      end
    end
    local r, g, b = Ref(nil), Ref(nil), Ref(nil)
    T.eq(t:GetColorMap(r, g, b), true, "and then it succeeds")
  end)

  T.test("OutputBuffer when the string cannot be made", function()
    local results = sweep("string", function()
      local t = TiffPictureTQV()
      T.truthy(t:CreateString(0))
      t.Pict = NewPicture(8, 8, 32)
      T.truthy(t:WriteRGB())
      t:Close()
      return t
    end, function(t) return t.OutputBuffer end)
    T.eq(results[1], false, "nil on the first string")
  end)

  T.test("TIFFStringToTiffPictureTQV when the object cannot be made", function()
    local data = T.read_bytes(RGB)
    host.failAfter("object", 1)
    T.eq(TIFFStringToTiffPictureTQV(data), nil)
    T.truthy(TIFFStringToTiffPictureTQV(data) ~= nil)
  end)
end)

T.finish()
