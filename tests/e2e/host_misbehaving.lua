-- The host's accounting against a plugin that leaks, over-releases and raises wrongly on purpose.
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
m:LeakStringData("copied bytes")
local leaked, leakedKinds = live()
local leakErrors = host.accountingErrors()
local released = m:ReleaseLeaks()
local repaired = live()

m:ReleaseStringTwice()
local stringTwice = host.accountingErrors()
m:ReleaseBlockTwice()
local blockTwice = host.accountingErrors()
m:DisposeStringDataTwice("copied bytes")
local dataTwice = host.accountingErrors()

local raisedSelf = pcall(m.RaiseSelf, m)
local raiseSelfErrors = host.accountingErrors()

do
  local doomed = MisbehavingTQV()
  doomed:RaiseWhenDestroyed()
end
collectgarbage(); collectgarbage()
local afterCollected = pcall(m.Balanced, m)

T.group("Misbehaving plugin", function()
  T.test("a balanced call changes nothing", function()
    T.eq(afterBalanced, base); T.eq(#balancedErrors, 0)
  end)

  T.test("leaked references show in the live count, by kind", function()
    T.eq(leaked, base + 3)
    T.eq(leakedKinds.string, 1, "strings"); T.eq(leakedKinds.memoryblock, 1, "memory blocks")
    T.eq(leakedKinds.stringdata, 1, "string-data copies")
    T.eq(#leakErrors, 0, "a leak is not an accounting error until released")
  end)

  T.test("giving the leaks back restores the count", function()
    T.eq(released, 3); T.eq(repaired, base)
  end)

  T.test("a second release of a string is reported", function()
    T.truthy(#stringTwice > 0, "accounting errors")
  end)

  T.test("a second release of a memory block is reported", function()
    T.truthy(#blockTwice > 0, "accounting errors")
  end)

  T.test("a second dispose of a string-data copy is reported", function()
    T.eq(#dataTwice, 1, "accounting errors")
  end)

  T.test("raising an object that is no exception is reported, not raised", function()
    T.truthy(raisedSelf, "the call returns")
    T.eq(#raiseSelfErrors, 1, "accounting errors")
  end)

  T.test("what a destructor raises when the collector runs it is no later call's exception", function()
    T.truthy(afterCollected, "the next call returns")
  end)

  T.test("the host goes on working", function()
    T.eq(m:Balanced(), 1)
    T.eq(#host.accountingErrors(), 0)
  end)
end)

T.finish()
