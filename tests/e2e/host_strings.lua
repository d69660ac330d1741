-- The reference host against the fixture plugin: host strings, their encodings and the host's
-- conversions. UTF-16 and UTF-32 are in machine order.
local T = require("host_strict")

local MACROMAN, UTF16, ASCII, UTF8, UTF32, BINARY = 0, 0x100, 0x600, 0x08000100, 0x0C000100, 0xFFFF
local LATIN1, WINLATIN1 = 0x201, 0x500

local function utf16(code) return string.pack("=I2", code) end
local function utf32(code) return string.pack("=I4", code) end

T.group("Strings into the plugin", function()
  T.test("a Lua string arrives as UTF-8", function()
    local o = FixtureTQV()
    T.eq(o:EncodingOf("abc"), UTF8)
    T.eq(o:ByteLength("é"), 2)
  end)

  T.test("String(bytes, encoding) keeps its bytes and its label", function()
    local o, s = FixtureTQV(), String("\xE9", MACROMAN)
    T.eq(tostring(s), "\xE9"); T.eq(s.encoding, MACROMAN)
    T.eq(o:EncodingOf(s), MACROMAN); T.eq(o:ByteLength(s), 1)
  end)

  T.test("embedded zero bytes survive both ways", function()
    local o = FixtureTQV()
    T.eq(o:ByteLength("a\0b"), 3)
    T.eq(tostring(o:ToUTF8("a\0b")), "a\0b")
  end)

  T.test("a long string", function()
    T.eq(FixtureTQV():ByteLength(string.rep("x", 100000)), 100000)
  end)
end)

T.group("Conversions", function()
  T.test("Mac Roman read back as UTF-8", function()
    local o = FixtureTQV()
    local s = o:ToUTF8(String("\x8E", MACROMAN))
    T.eq(tostring(s), "é"); T.eq(s.encoding, UTF8)
    -- 0xE9 is E grave in Mac Roman (it is e acute only in Latin-1).
    T.eq(tostring(o:ToUTF8(String("\xE9", MACROMAN))), "È")
  end)

  -- 0x80 is the euro sign in Windows Latin 1 and a control character in ISO Latin 1.
  T.test("ISO and Windows Latin 1 read back as UTF-8", function()
    local o = FixtureTQV()
    T.eq(tostring(o:ToUTF8(String("caf\xE9 \x80", WINLATIN1))), "café €")
    T.eq(tostring(o:ToUTF8(String("caf\xE9 \x80", LATIN1))), "café \xC2\x80")
  end)

  T.test("UTF-16 and UTF-32 read back as UTF-8", function()
    local o = FixtureTQV()
    T.eq(tostring(o:ToUTF8(String(utf16(0xE9) .. utf16(0x41), UTF16))), "éA")
    T.eq(tostring(o:ToUTF8(String(utf16(0xD83D) .. utf16(0xDE00), UTF16))), "😀", "surrogate pair")
    T.eq(tostring(o:ToUTF8(String(utf32(0x1F600), UTF32))), "😀")
  end)

  T.test("binary bytes are never converted", function()
    local o, s = FixtureTQV(), String("\xE9\xFF\x00\x01", BINARY)
    T.eq(tostring(o:ToUTF8(s)), "\xE9\xFF\x00\x01")
    T.eq(o:ByteLength(s), 4)
    T.eq(o:EncodingOf(s), BINARY)
  end)

  T.test("the host converts é into each encoding", function()
    local o = FixtureTQV()
    for _, c in ipairs({ { MACROMAN, "\x8E" }, { UTF8, "é" }, { UTF16, utf16(0xE9) }, { UTF32, utf32(0xE9) },
                            { LATIN1, "\xE9" }, { WINLATIN1, "\xE9" } }) do
      local s = o:Accented(c[1])
      T.eq(tostring(s), c[2], string.format("bytes in 0x%X", c[1]))
      T.eq(s.encoding, c[1], "label")
    end
  end)

  T.test("what the target cannot hold becomes ?; an unknown encoding fails", function()
    local o = FixtureTQV()
    T.eq(tostring(o:Accented(ASCII)), "?")
    T.eq(o:Accented(0x7FFF1234), nil)
  end)

  T.test("converting UTF-8 text to Mac Roman", function()
    T.eq(tostring(FixtureTQV():Convert("é!", MACROMAN)), "\x8E!")
  end)

  T.test("converting nil gives an empty string of the wanted encoding", function()
    local s = FixtureTQV():Convert(nil, UTF16)
    T.eq(tostring(s), ""); T.eq(s.encoding, UTF16)
  end)

  T.test("strings the plugin labels ASCII", function()
    T.eq(FixtureTQV().Label.encoding, ASCII)
  end)
end)

T.finish()
