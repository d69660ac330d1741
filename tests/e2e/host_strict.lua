-- Host programs of the fixture plugin use this name for the test library. The library itself now
-- fails a test on any accounting error the host recorded during it; faults from before the first
-- test belong to no test, so the record starts clean.
local T = require("testlib")
host.accountingErrors()
return T
