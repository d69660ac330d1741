-- One host configuration as the fixture plugin sees it. Run once per configuration:
--   tqvhost [--host-version V] [--app KIND] [--withhold NAME] --plugin TqvFixture run host_config.lua VERSION KIND
-- VERSION is the host version the plugin must have learnt ("any": some positive version), KIND the
-- application kind ("desktop", "console", "web", "none").
local T = require("host_strict")

local wantVersion, wantKind = arg[1], arg[2]

T.group("Host configuration " .. wantVersion .. " " .. wantKind, function()
  T.test("the plugin learnt the configured host version", function()
    if wantVersion == "any" then
      T.truthy(FixtureVersionTQV() > 0, "host version")
    else
      T.eq(FixtureVersionTQV(), tonumber(wantVersion))
    end
  end)

  T.test("exactly the configured application class exists", function()
    T.eq(tostring(FixtureAppKindTQV()), wantKind)
  end)

  T.test("console-safe members work in every application kind", function()
    local o = FixtureTQV()
    o.Name = "x"
    T.eq(o:Add(1, 2), 3)
    T.eq(tostring(o.Name), "x")
    T.eq(FolderItem(T.tmpfile("config-probe")):FixtureSizeTQV(), -1)
  end)
end)

T.finish()
