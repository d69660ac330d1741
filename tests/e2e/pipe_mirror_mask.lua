-- MirrorVertical exchanges the rows of two open images crosswise; CombinePictureWithMask merges
-- Pict and Mask into one picture.
--
-- arg[1] is the pipe_images tool, arg[2] the back end's name. mirror_a.tif and mirror_b.tif hold
-- three rows of four grey bytes: file f (1 or 2), row y, column x holds 10 f + 4 y + x.
local T = require("testlib")
package.path = debug.getinfo(1, "S").source:match("^@(.*/)") .. "?.lua;" .. package.path
local P = require("pipe_common")

local images = P.images(arg, "pipe_mirror_mask")

local function original_row(f, y)
  return { 10 * f + 4 * y, 10 * f + 4 * y + 1, 10 * f + 4 * y + 2, 10 * f + 4 * y + 3 }
end

local function rows_of(path)
  return P.dump(path).rows
end

local function expect_rows(path, rows, what)
  local got = rows_of(path)
  T.eq(#got, #rows, what .. ": rows")
  for y = 1, #rows do
    T.eq(table.concat(got[y], ","), table.concat(rows[y], ","), what .. ": row " .. (y - 1))
  end
end

-- Fresh copies of the two files, so every test starts from the originals.
local copies = 0
local function fresh_pair()
  copies = copies + 1
  local a, b = P.path("a" .. copies .. ".tif"), P.path("b" .. copies .. ".tif")
  assert(P.run("cp " .. T.quote(images .. "/mirror_a.tif") .. " " .. T.quote(a)))
  assert(P.run("cp " .. T.quote(images .. "/mirror_b.tif") .. " " .. T.quote(b)))
  return a, b
end

local function untouched(a, b)
  expect_rows(a, { original_row(1, 0), original_row(1, 1), original_row(1, 2) }, "a untouched")
  expect_rows(b, { original_row(2, 0), original_row(2, 1), original_row(2, 2) }, "b untouched")
end

T.group("MirrorVertical", function()
  T.test("two sessions of three rows, both open for update", function()
    local a, b = fresh_pair()
    local ta, tb = TiffPictureTQV(), TiffPictureTQV()
    T.eq(ta:Open(FolderItem(a), "r+"), true)
    T.eq(tb:Open(FolderItem(b), "r+"), true)
    T.eq(ta:MirrorVertical(tb), true)
    ta:Close(); tb:Close()
    expect_rows(a, { original_row(2, 2), original_row(2, 1), original_row(2, 0) }, "a holds b's rows 2, 1, 0")
    expect_rows(b, { original_row(1, 2), original_row(1, 1), original_row(1, 0) }, "b holds a's rows 2, 1, 0")
  end)
  T.test("read-only files: the failed writes (-1) do not stop it; nothing changes", function()
    local a, b = fresh_pair()
    local ta, tb = TiffPictureTQV(), TiffPictureTQV()
    local errors = 0
    ta.Error = function() errors = errors + 1 end
    T.eq(ta:Open(FolderItem(a)), true)
    T.eq(tb:Open(FolderItem(b)), true)
    T.eq(ta:MirrorVertical(tb), true)
    T.truthy(errors > 0, "libtiff's errors reach the calling session")
    ta:Close(); tb:Close()
    untouched(a, b)
  end)
  T.test("a nil output, a closed output or a closed self: false, files untouched", function()
    local a, b = fresh_pair()
    local ta, tb = TiffPictureTQV(), TiffPictureTQV()
    T.eq(ta:MirrorVertical(tb), false, "self closed")
    T.eq(ta:Open(FolderItem(a), "r+"), true)
    T.eq(ta:MirrorVertical(nil), false, "nil output")
    T.eq(ta:MirrorVertical(tb), false, "output closed")
    T.eq(tb:Open(FolderItem(b), "r+"), true)
    tb:Close()
    T.eq(ta:MirrorVertical(tb), false, "output closed again")
    ta:Close()
    untouched(a, b)
  end)
  -- `height` (10 unless given) rows of four grey bytes, file f, row y, column x holding
  -- 16 f + 4 y + x (f = 1 or 2), uncompressed in one strip, then cut by tiffcp into strips of
  -- `rows` rows (the last one shorter) with `compression`.
  local function striped(f, rows, compression, height)
    height = height or 10
    local body = {}
    for y = 0, height - 1 do
      for x = 0, 3 do body[#body + 1] = string.char(16 * f + 4 * y + x) end
    end
    local entries = { { 256, 3, 4 }, { 257, 3, height }, { 258, 3, 8 }, { 259, 3, 1 }, { 262, 3, 1 },
      { 273, 4, 8 }, { 277, 3, 1 }, { 278, 3, height }, { 279, 4, 4 * height } }
    local ifd = { string.pack("<I2", #entries) }
    for _, e in ipairs(entries) do
      ifd[#ifd + 1] = e[2] == 3 and string.pack("<I2I2I4I2I2", e[1], 3, 1, e[3], 0)
                      or string.pack("<I2I2I4I4", e[1], 4, 1, e[3])
    end
    ifd[#ifd + 1] = string.pack("<I4", 0)
    local plain = P.path(string.format("plain%d.tif", f))
    T.write_bytes(plain, "II*\0" .. string.pack("<I4", 8 + 4 * height) .. table.concat(body) .. table.concat(ifd))
    local path = P.path(string.format("striped%d_%d_%s_%d.tif", f, rows, compression, height))
    assert(P.run(string.format("tiffcp -r %d -c %s %s %s", rows, compression, T.quote(plain), T.quote(path))))
    return path
  end
  local function striped_row(f, y)
    return { 16 * f + 4 * y, 16 * f + 4 * y + 1, 16 * f + 4 * y + 2, 16 * f + 4 * y + 3 }
  end
  T.test("strips of several rows, a short last strip, uncompressed and LZW", function()
    for _, case in ipairs({ { 3, "none" }, { 4, "lzw" }, { 10, "none" }, { 3, "lzw" } }) do
      local what = case[1] .. "-row strips, " .. case[2]
      local a, b = striped(1, case[1], case[2]), striped(2, case[1], case[2])
      local ta, tb = TiffPictureTQV(), TiffPictureTQV()
      T.eq(ta:Open(FolderItem(a), "r+"), true)
      T.eq(tb:Open(FolderItem(b), "r+"), true)
      T.eq(ta:MirrorVertical(tb), true, what)
      ta:Close(); tb:Close()
      local want_a, want_b = {}, {}
      for y = 0, 9 do
        want_a[y + 1], want_b[y + 1] = striped_row(2, 9 - y), striped_row(1, 9 - y)
      end
      expect_rows(a, want_a, what .. ": a holds b's rows upside down")
      expect_rows(b, want_b, what .. ": b holds a's rows upside down")
    end
  end)
  T.test("an output taller than this image: its rows beyond stay, in a strip shared with exchanged rows", function()
    local a, b = striped(1, 4, "lzw"), striped(2, 4, "lzw", 11)
    local ta, tb = TiffPictureTQV(), TiffPictureTQV()
    T.eq(ta:Open(FolderItem(a), "r+"), true)
    T.eq(tb:Open(FolderItem(b), "r+"), true)
    T.eq(ta:MirrorVertical(tb), true)
    ta:Close(); tb:Close()
    local want_a, want_b = {}, {}
    for y = 0, 9 do
      want_a[y + 1], want_b[y + 1] = striped_row(2, 9 - y), striped_row(1, 9 - y)
    end
    want_b[11] = striped_row(2, 10)
    expect_rows(a, want_a, "a holds b's rows 9 to 0")
    expect_rows(b, want_b, "b holds a's rows upside down, then its own row 10")
  end)
  T.test("an output with fewer rows is refused before anything is read or written", function()
    -- The rows past the output's height were written, and libtiff lost one of them while the
    -- call answered true.
    local a, b = striped(1, 3, "none", 7), striped(2, 2, "none", 4)
    local ta, tb = TiffPictureTQV(), TiffPictureTQV()
    local errors = {}
    ta.Error = function(_, _, message) errors[#errors + 1] = tostring(message) end
    T.eq(ta:Open(FolderItem(a), "r+"), true)
    T.eq(tb:Open(FolderItem(b), "r+"), true)
    T.eq(ta:MirrorVertical(tb), false)
    T.eq(errors[1], "The output image has 4 rows, fewer than this image's 7")
    ta:Close(); tb:Close()
    local want_a, want_b = {}, {}
    for y = 0, 6 do want_a[y + 1] = striped_row(1, y) end
    for y = 0, 3 do want_b[y + 1] = striped_row(2, y) end
    expect_rows(a, want_a, "a untouched")
    expect_rows(b, want_b, "b untouched")
  end)
  T.test("a session exchanged with itself: every pair swapped twice, the rows stay", function()
    for _, case in ipairs({ { 1, "none" }, { 2, "packbits" }, { 3, "lzw" } }) do
      local what = case[1] .. "-row strips, " .. case[2]
      local a = striped(1, case[1], case[2], 5)
      local t = TiffPictureTQV()
      local errors = 0
      t.Error = function() errors = errors + 1 end
      T.eq(t:Open(FolderItem(a), "r+"), true)
      T.eq(t:MirrorVertical(t), true, what)
      t:Close()
      local want = {}
      for y = 0, 4 do want[y + 1] = striped_row(1, y) end
      expect_rows(a, want, what)
      T.eq(errors, 0, what)
    end
  end)
  T.test("a new output: its unwritten rows fail and bring nothing in; it gets the rows upside down", function()
    local a = striped(1, 2, "none", 5)
    local ta, out = TiffPictureTQV(), TiffPictureTQV()
    local errors = 0
    ta.Error = function() errors = errors + 1 end
    T.eq(ta:Open(FolderItem(a), "r+"), true)
    T.eq(out:Create(FolderItem(P.path("unwritten_output.tif"))), true)
    out.Width, out.Height, out.BitsPerSample, out.Photometric, out.RowsPerStrip = 4, 5, 8, 1, 2
    ta:MirrorVertical(out)
    ta:Close(); out:Close()
    T.truthy(errors > 0, "the unwritten strips were reported")
    -- Every row read from the output failed, so this image's rows got the zeroed buffer.
    local zeros = {}
    for y = 1, 5 do zeros[y] = { 0, 0, 0, 0 } end
    expect_rows(a, zeros, "no byte of the output file")
    local flipped = {}
    for y = 0, 4 do flipped[y + 1] = striped_row(1, 4 - y) end
    expect_rows(P.path("unwritten_output.tif"), flipped, "the output holds the rows upside down")
  end)
  T.test("an output with longer rows is refused", function()
    local a = fresh_pair()
    local wide = P.path("wide.tif")
    assert(P.run("cp " .. T.quote(images .. "/lut_rgb8.tif") .. " " .. T.quote(wide)))
    local ta, tw = TiffPictureTQV(), TiffPictureTQV()
    T.eq(ta:Open(FolderItem(a), "r+"), true)
    T.eq(tw:Open(FolderItem(wide), "r+"), true)
    T.eq(ta:MirrorVertical(tw), false)
    ta:Close(); tw:Close()
    expect_rows(a, { original_row(1, 0), original_row(1, 1), original_row(1, 2) }, "a untouched")
  end)
end)

T.group("CombinePictureWithMask", function()
  T.test("before any read: nil", function()
    T.eq(TiffPictureTQV():CombinePictureWithMask(), nil)
  end)
  T.test("after a bilevel read (no mask): Pict itself", function()
    local t = TiffPictureTQV()
    T.eq(t:Open(FolderItem(images .. "/bw_20x10.tif")), true)
    T.eq(t:ReadBW(), true)
    local combined = t:CombinePictureWithMask()
    T.truthy(combined == t.Pict, "the same picture")
  end)
  T.test("with a mask: a new picture of Pict's size carrying it; the session keeps both", function()
    local t = TiffPictureTQV()
    local colour = function(x, y) return 40 * x, 100 * y, 7 end
    local grey = function(x, y) local v = 60 * x + 30 * y return v, v, v end
    t.Pict, t.Mask = T.picture(4, 2, colour), T.picture(4, 2, grey)
    local combined = t:CombinePictureWithMask()
    T.truthy(combined and combined ~= t.Pict, "a new picture")
    T.eq(combined.Width, 4); T.eq(combined.Height, 2)
    T.truthy(combined.Mask, "a mask")
    for y = 0, 1 do
      for x = 0, 3 do
        local r, g, b = combined:Pixel(x, y)
        local er, eg, eb = colour(x, y)
        T.eq(r * 65536 + g * 256 + b, er * 65536 + eg * 256 + eb, string.format("colour (%d, %d)", x, y))
        T.eq((combined.Mask:Pixel(x, y)), (grey(x, y)), string.format("mask (%d, %d)", x, y))
      end
    end
    T.truthy(t.Pict and t.Mask, "both kept")
  end)
end)

T.finish()
