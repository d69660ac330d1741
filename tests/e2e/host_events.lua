-- The reference host against the fixture plugin: events, host exceptions and yielding.
-- Handlers use their `self` argument rather than capturing the object, so that no handler keeps
-- its own object alive.
local T = require("host_strict")

T.group("Events", function()
  T.test("a handler receives the object and the arguments", function()
    local o, got = FixtureTQV(), {}
    o.Count = 4
    o.Changed = function(self, name, value)
      got.self, got.count, got.name, got.value = self, self.Count, tostring(name), value
    end
    T.eq(o:Fire("width", 12), true)
    T.eq(got.count, 4); T.eq(got.name, "width"); T.eq(got.value, 12)
    T.truthy(got.self == o, "self is the object itself")
  end)

  T.test("without a handler the event instance is nil", function()
    T.eq(FixtureTQV():Fire("x", 1), false)
  end)

  T.test("handlers belong to one object", function()
    local a, b, calls = FixtureTQV(), FixtureTQV(), 0
    a.Changed = function() calls = calls + 1 end
    T.eq(b:Fire("x", 1), false)
    T.eq(a:Fire("x", 1), true)
    T.eq(calls, 1)
  end)

  T.test("a handler is replaced, then removed", function()
    local o, seen = FixtureTQV(), {}
    o.Changed = function() seen[#seen + 1] = "first" end
    o.Changed = function() seen[#seen + 1] = "second" end
    o:Fire("x", 1)
    o.Changed = nil
    T.eq(o:Fire("x", 1), false)
    T.eq(table.concat(seen, ","), "second")
  end)

  T.test("an event with a result and one without parameters", function()
    local o, pings = FixtureTQV(), 0
    T.eq(o:Ask(21), -1, "no handler")
    o.Filter = function(self, value) return value * 2 end
    o.Pinged = function() pings = pings + 1 end
    T.eq(o:Ask(21), 42)
    T.eq(o:Ping(), true)
    T.eq(pings, 1)
  end)

  T.test("an error in a handler reaches the program when the plugin call returns", function()
    local o = FixtureTQV()
    o.Changed = function() error("boom") end
    local ok, err = pcall(o.Fire, o, "x", 1)
    T.eq(ok, false)
    T.truthy(tostring(err):find("boom", 1, true), "the handler's error")
    o.Changed = nil
    T.eq(o:Fire("x", 1), false, "object still usable")
  end)

  T.test("a handler may call back into the plugin", function()
    local o = FixtureTQV()
    o.Changed = function(self, name, value) self.Count = value; self.Name = name end
    o:Fire("again", 5)
    T.eq(o.Count, 5); T.eq(tostring(o.Name), "again")
  end)
end)

T.group("Host exceptions", function()
  T.test("class and message reach the program", function()
    local o = FixtureTQV()
    T.raises("NilObjectException", "folderitem is nil", function() o:Fail("NilObjectException", "folderitem is nil") end)
    T.raises("OutOfMemoryException", "Failed to allocate a memoryblock with 9 bytes in size.",
      function() o:Fail("OutOfMemoryException", "Failed to allocate a memoryblock with 9 bytes in size.") end)
  end)

  T.test("pcall sees a value with class and message", function()
    local o = FixtureTQV()
    local ok, err = pcall(o.Fail, o, "NilObjectException", "é")
    T.eq(ok, false)
    T.eq(err.class, "NilObjectException"); T.eq(err.message, "é")
  end)

  T.test("an unknown class becomes a RuntimeException", function()
    T.raises("RuntimeException", "oops", function() FixtureTQV():Fail("NoSuchExceptionTQV", "oops") end)
  end)

  T.test("the object works normally after an exception", function()
    local o = FixtureTQV()
    pcall(o.Fail, o, "NilObjectException", "x")
    o.Count = 3
    T.eq(o:Add(1), 4)
    T.eq(o:Fire("x", 1), false)
  end)
end)

T.group("Yield", function()
  T.test("each REALYieldToRB runs the program's yield hook", function()
    local n = 0
    host.onYield(function() n = n + 1 end)
    T.eq(FixtureTQV():YieldTimes(3), 3)
    host.onYield(nil)
    T.eq(n, 3)
  end)

  T.test("the yield hook may call into the plugin", function()
    local o = FixtureTQV()
    host.onYield(function() o.Count = o:Add(1) end)
    o:YieldTimes(2)
    host.onYield(nil)
    T.eq(o.Count, 2)
  end)
end)

T.finish()
