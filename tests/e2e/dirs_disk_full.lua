-- A directory that cannot be written (run with files limited to 32 KiB, as on a full disk).
local T = require("testlib")

T.group("A directory write that fails", function()
  -- libtiff gives its strip buffer up before it writes the directory, and after a failed write
  -- still took the strip for loaded: the next row read from it read freed memory.
  T.test("rows are refused until an image is selected again", function()
    local copy = T.tmpfile("disk_full.tif")
    T.write_bytes(copy, T.read_bytes(T.testdata("libtiff/images/minisblack-1c-8b.tiff"))) -- 24,001 bytes
    local t = TiffPictureTQV()
    T.truthy(t:Open(FolderItem(copy), "r+"))
    T.truthy(t:Scanlines(0, 3))
    t.ImageDescription = string.rep("x", 16000)
    local log = T.message_log(t)
    T.eq(t:Flush(), false)
    T.eq(t:Scanlines(0, 2), nil)
    T.truthy(log():find("could not be written; select an image again first", 1, true))
    t:Close()
  end)
end)

T.finish()
