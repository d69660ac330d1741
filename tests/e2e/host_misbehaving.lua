-- The host's accounting against a plugin that leaks and over-releases on purpose.
--
-- The misbehaviour runs at top level, outside T.test: testlib's balance check would (rightly)
-- fail a test that leaks. Each T.test below only inspects what was recorded, so its own balance
-- check still runs and holds. The leaks are given back before the checks, so the process also
-- ends with the plugin holding nothing.
local T = require("testlib")

local function live()
  collectgarbage(); collectgarbage()
  return host.live()
end

local m = MisbehavingTQV()
host.accountingErrors() -- start from a clean record
local base = live()

m:Balanced()
local afterBalanced, balancedErrors = live(), host.accountingErrors()

m:LeakString()
m:LeakBlock()
local leaked, leakedKinds = live()
local leakErrors = host.accountingErrors()
local released = m:ReleaseLeaks()
local repaired = live()

m:ReleaseStringTwice()
local stringTwice = host.accountingErrors()
m:ReleaseBlockTwice()
local blockTwice = host.accountingErrors()

T.group("Misbehaving plugin", function()
  T.test("a balanced call changes nothing", function()
    T.eq(afterBalanced, base); T.eq(#balancedErrors, 0)
  end)

  T.test("leaked references show in the live count, by kind", function()
    T.eq(leaked, base + 2)
    T.eq(leakedKinds.string, 1, "strings"); T.eq(leakedKinds.memoryblock, 1, "memory blocks")
    T.eq(#leakErrors, 0, "a leak is not an accounting error until released")
  end)

  T.test("giving the leaks back restores the count", function()
    T.eq(released, 2); T.eq(repaired, base)
  end)

  T.test("a second release of a string is reported", function()
    T.truthy(#stringTwice > 0, "accounting errors")
  end)

  T.test("a second release of a memory block is reported", function()
    T.truthy(#blockTwice > 0, "accounting errors")
  end)

  T.test("the host goes on working", function()
    T.eq(m:Balanced(), 1)
    T.eq(#host.accountingErrors(), 0)
  end)
end)

T.finish()
