-- A desktop host whose new pictures are of a depth the plugin cannot write (16 or 8 bits): run
-- with --desktop-depth 16 or 8. Writers refuse such pictures, and a reader's copy of one is of
-- the same depth again, so it fails instead of copying without end.
local T = require("testlib")

-- Any image libtiff renders: the host cannot make a 32-bit picture to write one of its own.
local function sample_file() return T.testdata("libtiff/images/32bpp-None.tiff") end

T.group("desktop host with " .. host.config().desktopDepth .. "-bit new pictures", function()
  T.test("ReadRGB decodes but no picture can be made: true with nil pictures", function()
    local t = TiffPictureTQV()
    T.eq(t:Open(FolderItem(sample_file())), true)
    T.eq(t:ReadRGB(), true)
    T.eq(t.Pict, nil); T.eq(t.Mask, nil)
    T.eq(TIFFStringToPictureTQV(T.read_bytes(sample_file())), nil, "the global has no picture either")
  end)
  T.test("WriteRGB of a picture of the host's depth fails: its copy is of that depth again", function()
    local t = TiffPictureTQV()
    T.eq(t:CreateString(0), true)
    local p = NewPicture(3, 2, host.config().desktopDepth)
    t.Pict = p
    T.eq(t:WriteRGB(), false)
    T.eq(p.DescriptionLocks, 0)
    T.eq(p.PixelLocks, 0)
    local _, kinds = host.live()
    T.eq(kinds.pixels, 0, "pixel locks are a kind of their own in host.live()")
  end)
end)

T.finish()
