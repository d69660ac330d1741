-- One host configuration as the fixture plugin sees it. Run once per configuration:
--   tqvhost [--host-version V] [--app KIND] [--withhold NAME] --plugin TqvFixture run host_config.lua VERSION KIND
-- VERSION is the host version the plugin must have learnt ("any": some positive version), KIND the
-- application kind ("desktop", "console", "web", "none").
local T = require("host_strict")

local wantVersion, wantKind = arg[1], arg[2]
-- Console and web applications are offered only the rows registered with the console flag (4).
local consoleLike = wantKind == "console" or wantKind == "web"

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

  T.test("host.config() reports the same configuration", function()
    local c = host.config()
    T.eq(c.app, wantKind)
    if wantVersion == "0" then
      -- The configured version stays; the plugin sees 0 because the service is withheld.
      T.eq(table.concat(c.withheld, ","), "REALGetRBVersion")
    elseif wantVersion ~= "any" then
      T.eq(c.version, tonumber(wantVersion))
    end
  end)

  T.test("pictures of this application kind keep their pixels", function()
    local o = FixtureTQV()
    local p = consoleLike and NewPicture(3, 2) or o:MakePicture(3, 2)
    p:SetPixel(2, 1, 200, 100, 50)
    local r, g, b = p:Pixel(2, 1)
    T.eq(r, 200); T.eq(g, 100); T.eq(b, 50)
    T.eq(o:PictureWidth(p), 3)
  end)

  T.test("console-safe members work in every application kind", function()
    local o = FixtureTQV()
    o.Name = "x"
    T.eq(o:Add(1, 2), 3)
    T.eq(tostring(o.Name), "x")
    T.eq(FolderItem(T.tmpfile("config-probe")):FixtureSizeTQV(), -1)
  end)

  T.test("members without the console flag are refused in console and web applications only", function()
    local o = FixtureTQV()
    for _, c in ipairs({
      { "MakePicture", function() return o:MakePicture(2, 1) end },
      { "Toggle", function() return o:Toggle() end },
      { "Image", function() return o.Image end },
      { "Image", function() o.Image = nil end },
      { "Serial", function() return o.Serial end },
      { "FixtureMakeTQV", function() return FixtureMakeTQV(1) end },
    }) do
      local ok, err = pcall(c[2])
      if consoleLike then
        T.eq(err, c[1] .. " is not available in " .. wantKind .. " applications")
      else
        T.truthy(ok, c[1] .. ": " .. tostring(err))
      end
    end
  end)
end)

T.finish()
