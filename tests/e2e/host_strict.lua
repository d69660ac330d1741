-- Makes testlib stricter for host programs that must not upset the host's accounting: every test
-- also fails when the host recorded an accounting error (a release beyond the plugin's locks, an
-- unlock of a dead handle, a result returned without a lock) during the test or while collecting
-- what the test left behind. Use instead of require("testlib"); the misbehaving plugin's program
-- does not, since it provokes such errors on purpose.
local T = require("testlib")

local test = T.test
host.accountingErrors() -- faults from before the first test belong to no test: start clean

function T.test(name, fn)
  test(name, function(...)
    fn(...)
    collectgarbage(); collectgarbage()
    local errors = host.accountingErrors()
    if #errors > 0 then T.fail("host accounting errors: " .. table.concat(errors, "; "), 2) end
  end)
end

return T
