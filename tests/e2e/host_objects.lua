-- The reference host against the fixture plugin: objects, properties, overloads, default
-- parameters, byref parameters, arrays and assignable rows.
local T = require("host_strict")

local function collect()
  collectgarbage(); collectgarbage()
end

T.group("Objects", function()
  T.test("constructor and destructor run once per object", function()
    local before = FixtureLiveTQV()
    local a, b = FixtureTQV(), FixtureTQV()
    T.eq(FixtureLiveTQV(), before + 2)
    a, b = nil, nil
    collect()
    T.eq(FixtureLiveTQV(), before)
  end)

  T.test("instance data is zero-filled, then set by the constructor", function()
    local o = FixtureTQV()
    T.eq(o.Count, 0); T.eq(o.Direct, 0); T.eq(o.Tint, 0); T.eq(o:Item(7), 0)
    T.eq(o.Enabled, true, "Enabled"); T.eq(o.Ratio, 1.5, "Ratio")
  end)

  T.test("each object has its own instance data", function()
    local a, b = FixtureTQV(), FixtureTQV()
    a.Count, b.Count = 1, 2
    a.Direct, b.Direct = 10, 20
    T.eq(a.Count, 1); T.eq(b.Count, 2); T.eq(a.Direct, 10); T.eq(b.Direct, 20)
    T.truthy(b.Serial > a.Serial, "later object has a higher serial")
  end)

  T.test("an object made by the plugin carries one reference for the program", function()
    local before = FixtureLiveTQV()
    local o = FixtureMakeTQV(9)
    T.eq(o.Count, 9); T.eq(o:Add(1), 10)
    T.eq(FixtureLiveTQV(), before + 1)
    o = nil
    collect()
    T.eq(FixtureLiveTQV(), before, "destroyed once the program drops it")
  end)

  T.test("a parameter of the plugin's own class", function()
    local a, b = FixtureTQV(), FixtureTQV()
    b.Count = 33
    T.eq(a:CopyFrom(b), 33); T.eq(a.Count, 33)
    T.raises("NilObjectException", "other is nil", function() a:CopyFrom(nil) end)
  end)
end)

T.group("Properties", function()
  T.test("Integer, Boolean, Double and Color round-trip", function()
    local o = FixtureTQV()
    o.Count = -5; T.eq(o.Count, -5)
    o.Count = 2147483647; T.eq(o.Count, 2147483647)
    o.Count = -2147483648; T.eq(o.Count, -2147483648)
    o.Enabled = false; T.eq(o.Enabled, false)
    o.Ratio = 0.1; T.eq(o.Ratio, 0.1)
    o.Tint = 0xFF8000; T.eq(o.Tint, 0xFF8000)
  end)

  T.test("Single is passed in single precision", function()
    local o = FixtureTQV()
    o.Scale = 0.1
    T.eq(o.Scale, string.unpack("f", string.pack("f", 0.1)))
    o.Scale = -2.5; T.eq(o.Scale, -2.5)
  end)

  T.test("String keeps its own reference to the assigned value", function()
    local o = FixtureTQV()
    o.Name = "first"
    o.Name = "second"
    collect()
    T.eq(tostring(o.Name), "second")
    T.eq(o.Name.encoding, 0x08000100)
  end)

  T.test("MemoryBlock keeps the block after the program drops it", function()
    local o, mb = FixtureTQV(), MemoryBlock(4)
    mb:SetByte(0, 7)
    o.Data = mb
    mb = nil
    collect()
    T.eq(o.Data.Size, 4); T.eq(o.Data:Byte(0), 7)
    o.Data = nil
    T.eq(o.Data, nil)
  end)

  T.test("Picture keeps the picture and its pixels", function()
    local o, p = FixtureTQV(), NewPicture(3, 2, 32)
    p:SetPixel(1, 1, 10, 20, 30)
    o.Image = p
    p = nil
    collect()
    T.eq(o.Image.Width, 3); T.eq(o.Image.Height, 2)
    local r, g, b = o.Image:Pixel(1, 1)
    T.eq(r, 10); T.eq(g, 20); T.eq(b, 30)
  end)

  T.test("read-only properties answer and refuse assignment", function()
    local o = FixtureTQV()
    T.eq(tostring(o.Label), "fixture"); T.eq(o.Label.encoding, 0x600)
    T.eq(math.type(o.Serial), "integer")
    T.falsy(pcall(function() o.Serial = 1 end), "assigning Serial")
    T.falsy(pcall(function() o.Label = "x" end), "assigning Label")
  end)

  T.test("a direct field is read and written in the instance data", function()
    local o = FixtureTQV()
    o.Direct = 77
    T.eq(o.Direct, 77)
    T.eq(o:DirectPlus(1), 78, "the plugin sees the host's write")
    o.Direct = -1
    T.eq(o:DirectPlus(0), -1)
    T.eq(o.Count, 0, "neighbouring fields untouched")
  end)
end)

T.group("Overloads and defaults", function()
  T.test("chosen by argument count", function()
    local o = FixtureTQV()
    o.Count = 100
    T.eq(o:Add(5), 105)
    T.eq(o:Add(2, 3), 5)
  end)

  T.test("chosen by argument types", function()
    local o = FixtureTQV()
    T.eq(o:Add(2.5, 0.25), 2.75)
    T.eq(math.type(o:Add(2, 3)), "integer")
    T.eq(o:Add(2, 0.5), 2.5, "a float forces the Double overload")
  end)

  T.test("Integer results wrap as the plugin computes them", function()
    T.eq(FixtureTQV():Add(2147483647, 1), -2147483648)
  end)

  T.test("Integer and Color take integral numbers within their 32 bits, elements of arrays too", function()
    local o = FixtureTQV()
    T.eq(o:Offset(10.0), 3, "a float with an integral value")
    o.Count = 5.0; T.eq(o.Count, 5)
    o.Tint = 0xFFFFFFFF; T.eq(o.Tint, 0xFFFFFFFF, "Color is unsigned")
    T.eq(o:Sum({ 1.0, 2 }), 3)
    for _, bad in ipairs({ 1.5, 2147483648, -2147483649, math.maxinteger, 2^31 }) do
      T.falsy(pcall(o.Offset, o, bad), "Integer " .. bad)
      T.falsy(pcall(function() o.Count = bad end), "Count = " .. bad)
    end
    T.falsy(pcall(function() o.Tint = -1 end), "a negative Color")
    T.falsy(pcall(function() o.Tint = 0x100000000 end), "a Color beyond 32 bits")
    for _, bad in ipairs({ { 1, 1.5 }, { "x" }, { -1 }, { 0x100000000 } }) do
      T.falsy(pcall(o.Sum, o, bad), "array element " .. tostring(bad[#bad]))
    end
    T.eq(o.Count, 5, "nothing assigned")
  end)

  T.test("default parameters: Double, negative Integer, Boolean written without spaces", function()
    local o = FixtureTQV()
    T.eq(o:Scaled(3), 7.5); T.eq(o:Scaled(3, 2), 6.0)
    T.eq(o:Offset(10), 3); T.eq(o:Offset(10, 1), 11)
    T.eq(o:Toggle(), true); T.eq(o:Toggle(true), false)
  end)
end)

T.group("Byref parameters", function()
  T.test("Integer and Double", function()
    local o, i, d = FixtureTQV(), Ref(41), Ref(5.0)
    o:Bump(i)
    T.eq(i.value, 42)
    T.eq(o:Halve(d), true)
    T.eq(d.value, 2.5)
  end)

  T.test("String: the old value is released, the new one lands in the slot", function()
    local o, r = FixtureTQV(), Ref("abc")
    T.eq(o:Decorate(r), 3)
    T.eq(tostring(r.value), "[abc]")
    T.eq(o:Decorate(r), 5, "second call sees the first call's string")
    T.eq(tostring(r.value), "[[abc]]")
  end)

  T.test("String slot holding nil", function()
    local o, r = FixtureTQV(), Ref(nil)
    T.eq(o:Decorate(r), -1)
    T.eq(tostring(r.value), "[]")
  end)

  T.test("MemoryBlock: replaced, emptied, filled from nil", function()
    local o, r = FixtureTQV(), Ref(MemoryBlock(3))
    T.eq(o:Refill(r, 5), 3)
    T.eq(r.value.Size, 5); T.eq(r.value:Byte(4), 0xAB)
    T.eq(o:Refill(r, -1), 5)
    T.eq(r.value, nil)
    T.eq(o:Refill(r, 1), -1)
    T.eq(r.value.Size, 1)
  end)

  T.test("one variable passed twice is one slot: lent, decorated twice, taken back once", function()
    local o, r, a, b = FixtureTQV(), Ref("x"), Ref("a"), Ref("b")
    T.eq(o:Link(r, r, Ref(nil)), true, "one address")
    T.eq(tostring(r.value), "[[x]]")
    T.eq(o:Link(a, b, Ref(nil)), false, "two variables, two addresses")
    T.eq(tostring(a.value) .. tostring(b.value), "[a][b]")
  end)

  T.test("one variable for byref parameters of two types is refused, nothing lent", function()
    local o, r = FixtureTQV(), Ref(nil)
    local ok, err = pcall(o.Link, o, Ref("a"), r, r)
    T.falsy(ok)
    T.eq(err, "Link: one variable passed byref as String and as MemoryBlock")
  end)
end)

T.group("Arrays", function()
  T.test("a Lua sequence is a color array", function()
    local o = FixtureTQV()
    T.eq(o:Sum({ 1, 2, 3 }), 6)
    T.eq(o:Sum({ 0xFFFFFF, 1 }), 0x1000000)
    T.eq(o:Sum({ 0x123456 }), 0x123456)
  end)

  T.test("an empty array has upper bound -1", function()
    T.eq(FixtureTQV():Sum({}), 0)
  end)

  T.test("a long array is read to its last element", function()
    local values = {}
    for i = 1, 1000 do values[i] = i end
    T.eq(FixtureTQV():Sum(values), 500500)
  end)
end)

T.group("Assignable rows", function()
  T.test("assign calls the setter, a call reads", function()
    local o = FixtureTQV()
    assign(o, "Item", 42, 3)
    assign(o, "Item", -9, 0)
    T.eq(o:Item(3), 42); T.eq(o:Item(0), -9); T.eq(o:Item(2), 0)
  end)

  T.test("an exception raised by a setter reaches the program", function()
    local o = FixtureTQV()
    T.raises("OutOfBoundsException", "index out of range", function() assign(o, "Item", 1, 8) end)
    T.raises("OutOfBoundsException", "index out of range", function() o:Item(-1) end)
  end)

  T.test("assign to a host value that is no plugin object is a Lua error", function()
    for _, v in ipairs({ MemoryBlock(4), String("x"), NewPicture(1, 1), FolderItem("x") }) do
      T.falsy(pcall(assign, v, "Item", 1, 0), "assign to " .. tostring(v))
    end
  end)

  T.test("a setter with a default parameter; replaced strings are released", function()
    local o = FixtureTQV()
    assign(o, "Cell", "a", 1)
    assign(o, "Cell", "b", 1, 1)
    T.eq(tostring(o:Cell(1)), "a"); T.eq(tostring(o:Cell(1, 0)), "a"); T.eq(tostring(o:Cell(1, 1)), "b")
    assign(o, "Cell", "c", 1)
    T.eq(tostring(o:Cell(1)), "c")
  end)
end)

T.group("Constants and names", function()
  T.test("constants read through the class and through an object", function()
    T.eq(FixtureTQV.kAnswer, 42); T.eq(FixtureTQV.kNegative, -3); T.eq(FixtureTQV().kBig, 32771)
  end)

  T.test("names are case-insensitive", function()
    local o = FixtureTQV()
    o.count = 3
    T.eq(o.COUNT, 3); T.eq(o:add(1, 2), 3); T.eq(FixtureTQV.KANSWER, 42)
  end)

  T.test("a call or assignment that fits no row is a Lua error", function()
    local o = FixtureTQV()
    T.falsy(pcall(o.Add, o, "x", 1), "string for Integer")
    T.falsy(pcall(o.Add, o, 1, 2, 3), "too many arguments")
    T.falsy(pcall(o.Scaled, o), "required parameter missing")
    T.falsy(pcall(o.Bump, o, 5), "plain value for byref")
    T.falsy(pcall(function() o.Count = "x" end), "string for an Integer property")
    T.eq(o.Count, 0, "nothing assigned")
  end)

  T.test("a method called on a value of another kind or class is a Lua error", function()
    local o, f = FixtureTQV(), FolderItem("/tmp")
    T.falsy(pcall(o.Add, MemoryBlock(4), 1), "a memory block as a FixtureTQV")
    T.falsy(pcall(o.Add, String("abc"), 1), "a string as a FixtureTQV")
    T.falsy(pcall(f.FixtureSizeTQV, o), "a FixtureTQV as a FolderItem")
    T.eq(f:FixtureSizeTQV() > 0, true, "the right kind still works")
  end)
end)

T.finish()
