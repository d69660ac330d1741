-- The reference host against the fixture plugin: memory blocks and pictures crossing the boundary
-- in both directions.
local T = require("host_strict")

T.group("Memory blocks", function()
  T.test("a block made by the plugin arrives with its bytes", function()
    local o = FixtureTQV()
    local mb = o:MakeBlock(300)
    T.eq(mb.Size, 300)
    T.eq(mb:Byte(0), 0); T.eq(mb:Byte(255), 255); T.eq(mb:Byte(299), 299 & 0xFF)
    T.eq(o:BlockSize(mb), 300, "and goes back to the plugin")
  end)

  T.test("an empty block", function()
    T.eq(FixtureTQV():MakeBlock(0).Size, 0)
  end)

  T.test("a block made by the program, read in machine order", function()
    local mb = MemoryBlock(8)
    mb:SetUInt32(4, 0x01020304)
    mb:SetUInt16(0, 0xA1B2)
    local native = string.pack("=I2", 0xA1B2)
    T.eq(mb:Byte(0), native:byte(1)); T.eq(mb:Byte(1), native:byte(2))
    T.eq(mb:UInt32(4), 0x01020304)
    T.eq(mb:Bytes(4, 4), string.pack("=I4", 0x01020304))
    T.eq(FixtureTQV():BlockSize(mb), 8)
  end)

  T.test("accesses outside the block are Lua errors, however far outside", function()
    local mb = MemoryBlock(16)
    for _, at in ipairs({ 13, 16, -1, math.maxinteger, math.mininteger }) do
      T.falsy(pcall(mb.UInt32, mb, at), "UInt32 at " .. at)
      T.falsy(pcall(mb.SetUInt32, mb, at, 1), "SetUInt32 at " .. at)
    end
    T.falsy(pcall(mb.SetBytes, mb, math.maxinteger - 1, "abc"), "SetBytes")
    T.falsy(pcall(mb.Bytes, mb, 8, math.maxinteger), "Bytes")
    T.falsy(pcall(mb.Bytes, mb, math.mininteger), "Bytes to the end from far below the block")
    T.eq(mb:UInt32(12), 0); T.eq(mb:Bytes(16), "")
  end)

  T.test("built-ins refuse fractions, wrong types, values a field cannot hold and NULs in paths", function()
    local mb, p = MemoryBlock(8), NewPicture(2, 2)
    local wrong = {
      ["MemoryBlock(1.5)"] = function() return MemoryBlock(1.5) end,
      ["MemoryBlock('8')"] = function() return MemoryBlock("8") end,
      ["Byte(1.5)"] = function() return mb:Byte(1.5) end,
      ["Bytes(0, '2')"] = function() return mb:Bytes(0, "2") end,
      ["SetByte(0, 256)"] = function() mb:SetByte(0, 256) end,
      ["SetByte(0, 'x')"] = function() mb:SetByte(0, "x") end,
      ["SetUInt16(0, -32769)"] = function() mb:SetUInt16(0, -32769) end,
      ["SetUInt32(4, 2^32)"] = function() mb:SetUInt32(4, 2 ^ 32) end,
      ["Pixel(1.5, 0)"] = function() return p:Pixel(1.5, 0) end,
      ["SetPixel(0, 0, 300, 0, 0)"] = function() p:SetPixel(0, 0, 300, 0, 0) end,
      ["String('x', 1.5)"] = function() return String("x", 1.5) end,
      ["String('x', 2^40)"] = function() return String("x", 2 ^ 40) end,
      ["FolderItem('x\\0y.tif')"] = function() return FolderItem("x\0y.tif") end,
      ["host.onYield(5)"] = function() host.onYield(5) end,
    }
    for name, call in pairs(wrong) do T.falsy(pcall(call), name) end
    T.eq(mb:Bytes(), string.rep("\0", 8), "nothing written")
    T.eq(p:Pixel(0, 0), 0, "no pixel set")
    mb:SetByte(0, 255.0); mb:SetUInt16(2, 65535); mb:SetUInt32(4, 4294967295)
    T.eq(mb:Bytes(), "\255\0\255\255\255\255\255\255", "the largest values of each field")
    mb:SetByte(0, -128); mb:SetUInt16(2, -1); mb:SetUInt32(4, -2147483648)
    T.eq(mb:Bytes(), "\128\0\255\255\0\0\0\128", "the smallest, as their signed counterparts")
  end)

  T.test("a nil block raises the plugin's exception", function()
    T.raises("NilObjectException", "block is nil", function() FixtureTQV():BlockSize(nil) end)
  end)

  T.test("a block over foreign bytes has an unknown size", function()
    T.eq(FixtureTQV():WrappedSize(), -1)
  end)
end)

T.group("Pictures", function()
  T.test("a picture made by the plugin", function()
    local p = FixtureTQV():MakePicture(5, 4)
    T.eq(p.Width, 5); T.eq(p.Height, 4)
    p:SetPixel(4, 3, 1, 2, 3)
    local r, g, b = p:Pixel(4, 3)
    T.eq(r, 1); T.eq(g, 2); T.eq(b, 3)
  end)

  T.test("the plugin reads Width by property name", function()
    local o = FixtureTQV()
    T.eq(o:PictureWidth(NewPicture(7, 3, 32)), 7)
    T.eq(o:PictureWidth(nil), -1)
  end)

  T.test("pictures of lower depths are pictures too", function()
    local o = FixtureTQV()
    for _, depth in ipairs({ 32, 24, 8 }) do
      T.eq(o:PictureWidth(NewPicture(2, 9, depth)), 2, "depth " .. depth)
    end
  end)
end)

T.finish()
