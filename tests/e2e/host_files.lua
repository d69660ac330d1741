-- The reference host against the fixture plugin: folder items, the file-reference services and a
-- method added to FolderItem by a class extension.
local T = require("host_strict")

local dir = T.tmpfile("host_files")
os.execute("rm -rf '" .. dir .. "' && mkdir -p '" .. dir .. "'")

T.group("Folder items", function()
  T.test("an existing file: path, size, and the same path through its parent", function()
    local path = dir .. "/seven.bin"
    T.write_bytes(path, "1234567")
    local f = FolderItem(path)
    T.eq(f.Exists, true); T.eq(tostring(f.Path), path)
    T.eq(f:FixtureSizeTQV(), 7)
    T.eq(tostring(f:FixturePathTQV()), path)
    T.eq(tostring(f:FixturePathTQV(true)), path)
  end)

  T.test("a file that does not exist yet, in an existing folder", function()
    local path = dir .. "/new file.tif"
    local f = FolderItem(path)
    T.eq(f.Exists, false)
    T.eq(f:FixtureSizeTQV(), -1, "no reference to the item itself")
    T.eq(tostring(f:FixturePathTQV()), path)
  end)

  T.test("non-ASCII names come back unchanged through UTF-16", function()
    for _, name in ipairs({ "café.tif", "😀.tif", "日本.tif" }) do
      T.eq(tostring(FolderItem(dir .. "/" .. name):FixturePathTQV()), dir .. "/" .. name, name)
    end
  end)

  T.test("a new name that is not UTF-8 has no reference, rather than another name", function()
    local f = FolderItem(dir .. "/bad\xff\xfename.tif")
    T.eq(f:FixturePathTQV(true), nil)
    T.eq(f:FixtureSpecNameTQV(), nil)
  end)

  T.test("an existing folder", function()
    T.eq(tostring(FolderItem(dir):FixturePathTQV()), dir)
  end)

  T.test("no parent folder: no reference at all", function()
    local f = FolderItem(dir .. "/missing/x.tif")
    T.eq(f.Exists, false)
    T.eq(f:FixturePathTQV(), nil)
    T.eq(f:FixtureSizeTQV(), -1)
    T.eq(f:FixtureSpecNameTQV(), nil, "nor an older file specification")
  end)

  T.test("the older file specification names the item in Mac Roman", function()
    local s = FolderItem(dir .. "/café.tif"):FixtureSpecNameTQV()
    T.eq(tostring(s), "caf\x8E.tif"); T.eq(s.encoding, 0)
  end)

  T.test("the older file specification takes 63 bytes of name, not 64", function()
    local name = string.rep("b", 59) .. ".tif"
    T.eq(tostring(FolderItem(dir .. "/" .. name):FixtureSpecNameTQV()), name)
    T.eq(FolderItem(dir .. "/" .. string.rep("a", 60) .. ".tif"):FixtureSpecNameTQV(), nil)
  end)

  T.test("the older file specification fails for names Mac Roman cannot hold", function()
    T.eq(FolderItem(dir .. "/日本.tif"):FixtureSpecNameTQV(), nil)
  end)
end)

T.finish()
