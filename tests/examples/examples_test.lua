-- The example tools, run as a user runs them: each as its own tqvhost process, on every file of
-- the test corpus (fuzzed and crashing files included) and on files that are no TIFF at all, plus
-- checks of what each tool promises (libtiff's own tools judge the files written).
--
--   tqvhost run examples_test.lua EXAMPLE TQVHOST PLUGIN EXAMPLES_DIR
--
-- A run is clean when it exits 0 with nothing on stderr, or exits 1 with exactly one line on
-- stderr that names the tool; a signal, a sanitizer report, a Lua traceback or a host accounting
-- fault is never clean. The tools run with TQV_CHECK_REFERENCES set, so a successful run also
-- fails when the plugin still holds host references at the end.
local T = require("testlib")

local example, tqvhost, plugin, exdir = arg[1], arg[2], arg[3], arg[4]
assert(example and tqvhost and plugin and exdir, "usage: examples_test.lua EXAMPLE TQVHOST PLUGIN EXAMPLES_DIR")
local tool = example .. ".lua"
local script = exdir .. "/" .. tool
local sample = exdir .. "/sample/sample.tif"

local q = T.quote

local tmp = T.tmpfile("examples-" .. example)
os.execute("rm -rf " .. q(tmp) .. " && mkdir -p " .. q(tmp))

local function sh(cmd)
  local ok = os.execute(cmd)
  return ok == true
end

local function lines_of(path)
  local list = {}
  local f = io.open(path, "rb")
  if f then
    for l in f:lines() do list[#list + 1] = l end
    f:close()
  end
  return list
end

-- Runs an example tool with these arguments: { rc, signal, out, err = { lines } }.
local function run_tool(name, ...)
  local cmd = "TQV_CHECK_REFERENCES=1 exec " .. q(tqvhost) .. " --plugin " .. q(plugin) .. " run "
    .. q(exdir .. "/" .. name .. ".lua")
  for _, a in ipairs({ ... }) do cmd = cmd .. " " .. q(a) end
  local errfile = tmp .. "/stderr.txt"
  local p = assert(io.popen(cmd .. " 2>" .. q(errfile)))
  local out = p:read("a")
  local _, how, code = p:close()
  return { rc = how == "exit" and code or nil, signal = how == "signal" and code or nil, out = out,
           err = lines_of(errfile) }
end

local function run(...) return run_tool(example, ...) end

local function show(r)
  return string.format("exit %s%s\nstdout:\n%s\nstderr:\n%s", tostring(r.rc),
    r.signal and (", signal " .. r.signal) or "", r.out:sub(1, 2000), table.concat(r.err, "\n"))
end

local function clean(r, what)
  if not r.signal and r.rc == 0 and #r.err == 0 then return end
  if not r.signal and r.rc == 1 and #r.err == 1 and r.err[1]:sub(1, #tool + 2) == tool .. ": " then return end
  T.fail(what .. ": not a clean run: " .. show(r), 2)
end

local function succeeds(r, what)
  if r.rc ~= 0 or #r.err ~= 0 or r.signal then T.fail(what .. ": expected success: " .. show(r), 2) end
end

-- Fails cleanly (exit `rc`, one line) with a message containing `text`.
local function refuses(r, rc, text, what)
  if r.rc ~= rc or #r.err ~= 1 or not r.err[1]:find(text, 1, true) then
    T.fail(what .. ": expected exit " .. rc .. " and one line with '" .. text .. "': " .. show(r), 2)
  end
end

local function count_matches(s, pattern)
  local n = 0
  for _ in s:gmatch(pattern) do n = n + 1 end
  return n
end

-- Directories of a file as libtiff's own tiffinfo counts them, or nil when it cannot read it.
local function libtiff_pages(path)
  local p = io.popen("tiffinfo " .. q(path) .. " 2>/dev/null")
  local out = p:read("a")
  local ok = p:close()
  return ok and count_matches(out, "TIFF Directory at offset") or nil
end

-- ---- The corpus -----------------------------------------------------------------------------

local corpus = {}
for _, f in ipairs(T.testdata_index()) do
  local w, h = f[8]:match("^(%d+)x(%d+)")
  corpus[#corpus + 1] = {
    path = T.testdata(f[1] .. "/" .. f[2]), name = f[1] .. "/" .. f[2], ndirs = tonumber(f[6]),
    width = tonumber(w), height = tonumber(h), rgba_ok = f[21] == "yes", tiffinfo_ok = f[26] == "0",
  }
end

-- A few files that are no TIFF: text, nothing, a PNG, and a TIFF cut off after its header.
local not_tiffs = {}
do
  local function make(name, bytes)
    not_tiffs[#not_tiffs + 1] = T.write_bytes(tmp .. "/" .. name, bytes)
  end
  make("text.tif", "This is a text file, not a picture.\n")
  make("empty.tif", "")
  make("truncated.tif", T.read_bytes(sample):sub(1, 12))
  local png = NewPicture(4, 3, 32)
  png:Save(tmp .. "/picture.tif")
  not_tiffs[#not_tiffs + 1] = tmp .. "/picture.tif"
end

-- PNGs made for the tools that read pictures. `alpha`: with a transparency gradient.
local function make_png(name, w, h, opts)
  opts = opts or {}
  local p = NewPicture(w, h, 32)
  for y = 0, h - 1 do
    for x = 0, w - 1 do
      local r, g, b = (x * 37 + y * 11) % 256, (x * 5 + y * 71) % 256, (x * y * 3) % 256
      if opts.gray then g, b = r, r end
      if opts.bw then r = ((x // 3 + y // 2) % 2 == 0) and 255 or 0; g, b = r, r end
      p:SetPixel(x, y, r, g, b)
    end
  end
  local path = tmp .. "/" .. name
  p:Save(path)
  return path, p
end

-- ---- Checks every tool shares --------------------------------------------------------------

T.group(tool .. " command line", function()
  T.test("--help prints the usage and exits 0", function()
    local r = run("--help")
    succeeds(r, "--help")
    T.truthy(r.out:find("^usage: tqvhost run " .. tool:gsub("%.", "%%.")), "usage line")
  end)
  T.test("no arguments, an unknown option: one line, exit 2", function()
    local r = run()
    T.eq(r.rc, 2, "exit without arguments"); T.eq(#r.err, 1, "stderr lines without arguments")
    refuses(run("--no-such-option", "a", "b"), 2, "unknown option --no-such-option", "unknown option")
  end)
  T.test("a missing input file: one line, exit 1", function()
    local missing = tmp .. "/no-such-file.tif"
    if example == "png2tiff" then
      refuses(run(tmp .. "/out.tif", missing), 1, "no such file", "missing PNG")
    elseif example == "tiffjoin" then
      refuses(run(tmp .. "/out.tif", sample, missing), 1, "no such file", "missing TIFF")
    elseif example == "tiffinfo" then
      refuses(run(missing), 1, "no such file", "missing TIFF")
    else
      refuses(run(missing, tmp), 1, "no such file", "missing TIFF")
    end
  end)
end)

if example ~= "png2tiff" then
  -- Runs the tool on one input TIFF, whatever its argument shape.
  local function run_on(input, n)
    if example == "tiffinfo" then return run(input) end
    if example == "tiff2png" then
      local dir = tmp .. "/png" .. n
      os.execute("rm -rf " .. q(dir) .. " && mkdir -p " .. q(dir))
      return run(input, dir), dir
    end
    if example == "tiffsplit" then return run(input, tmp .. "/split" .. n .. "-"), tmp .. "/split" .. n .. "-" end
    return run(tmp .. "/joined" .. n .. ".tif", input), tmp .. "/joined" .. n .. ".tif"
  end

  T.group(tool .. " on files that are no TIFF", function()
    for _, path in ipairs(not_tiffs) do
      T.test(path:match("[^/]*$"), function()
        refuses(run_on(path, 0), 1, "not a TIFF file", path)
      end)
    end
  end)

  T.group(tool .. " on every file of the corpus", function()
    for n, file in ipairs(corpus) do
      T.test(file.name, function()
        local r, out = run_on(file.path, n)
        clean(r, file.name)
        if example == "tiffinfo" then
          -- What libtiff's tiffinfo reads in full, this tool reads in full, with the same size.
          if file.tiffinfo_ok and file.ndirs and file.ndirs > 0 then
            succeeds(r, file.name)
            local w, h = r.out:match("Image Width: (%d+) Image Length: (%d+)")
            T.eq(tonumber(w), file.width, "width of the first page")
            T.eq(tonumber(h), file.height, "height of the first page")
          end
        elseif example == "tiff2png" then
          -- The first page of a file libtiff renders becomes a PNG of its size (later pages of a
          -- damaged file may still fail).
          if file.rgba_ok and file.width <= 32767 and file.height <= 32767 then
            local png = out .. "/" .. file.name:match("([^/]*)$"):gsub("%.[^.]*$", "") .. "-0.png"
            local p, err = LoadPicture(png)
            T.truthy(p, "the PNG " .. png .. " (" .. tostring(err) .. ")")
            T.eq(p.Width, file.width, "PNG width"); T.eq(p.Height, file.height, "PNG height")
          end
          os.execute("rm -rf " .. q(out))
        elseif r.rc == 0 then
          -- Every file written opens in libtiff's tiffinfo, one page per line reported.
          local pages = count_matches(r.out, "\npage %d+:") + (r.out:find("^page %d+:") and 1 or 0)
          if example == "tiffsplit" then
            for i = 0, pages - 1 do
              local a = string.byte("a")
              local name = out .. string.char(a + i // 676 % 26, a + i // 26 % 26, a + i % 26) .. ".tif"
              T.eq(libtiff_pages(name), 1, "pages of " .. name .. " in libtiff's tiffinfo")
            end
            os.execute("rm -f " .. q(out) .. "*.tif")
          else
            T.eq(libtiff_pages(out), pages, "pages of the joined file in libtiff's tiffinfo")
            os.remove(out)
          end
        end
      end)
    end
  end)
end

-- ---- What each tool promises ---------------------------------------------------------------

if example == "tiffinfo" then
  T.group("tiffinfo.lua fields", function()
    T.test("the sample's three pages, their text tags and extra samples", function()
      local r = run(sample)
      succeeds(r, "sample")
      T.eq(count_matches(r.out, "=== TIFF directory %d+ ==="), 3, "directories")
      T.truthy(r.out:find("Compression Scheme: CCITT Group 4", 1, true), "G4 page")
      T.truthy(r.out:find("Extra Samples: 1<unassoc-alpha>", 1, true), "alpha page")
      T.truthy(r.out:find("ImageDescription: Bilevel checkerboard", 1, true), "description")
    end)
    T.test("ICC profile, XMP packet and colour map sizes", function()
      local icc = run(T.testdata("pillow/hopper.iccprofile.tif"))
      succeeds(icc, "ICC file")
      T.truthy(icc.out:find("ICC Profile: <present>, %d+ bytes"), "ICC line")
      local xmp = run(T.testdata("image-tiff/images/fax4.tiff"))
      T.truthy(xmp.out:find("XMLPacket %(XMP Metadata%): %d+ bytes"), "XMP line")
      local palette = run(T.testdata("libtiff/images/palette-1c-8b.tiff"))
      T.truthy(palette.out:find("Color Map: (present) 256 entries", 1, true), "colour map line")
    end)
  end)
end

if example == "tiff2png" then
  T.group("tiff2png.lua pictures", function()
    T.test("transparency becomes the PNG's alpha; opaque pages stay opaque", function()
      local dir = tmp .. "/alpha"
      os.execute("mkdir -p " .. q(dir))
      succeeds(run(sample, dir), "sample")
      local opaque = assert(LoadPicture(dir .. "/sample-0.png"))
      local disc = assert(LoadPicture(dir .. "/sample-1.png"))
      T.truthy(disc.Mask, "the alpha page has a mask")
      local transparent, solid = 0, 0
      for y = 0, disc.Height - 1 do
        for x = 0, disc.Width - 1 do
          local m = disc.Mask:Pixel(x, y)
          if m == 255 then transparent = transparent + 1 elseif m == 0 then solid = solid + 1 end
          if opaque.Mask then T.eq(opaque.Mask:Pixel(x, y), 0, "opaque page mask") end
        end
      end
      T.truthy(transparent > 0 and solid > 0, "the disc has transparent corners and an opaque centre")
    end)
    T.test("--preview 3 saves every third pixel", function()
      local dir = tmp .. "/preview"
      os.execute("mkdir -p " .. q(dir))
      local full, small = tmp .. "/full", dir
      os.execute("mkdir -p " .. q(full))
      succeeds(run("--preview", "3", sample, small), "preview")
      succeeds(run(sample, full), "full")
      local a, b = assert(LoadPicture(small .. "/sample-0.png")), assert(LoadPicture(full .. "/sample-0.png"))
      T.eq(a.Width, 22, "preview width"); T.eq(a.Height, 16, "preview height")
      for y = 0, a.Height - 1 do
        for x = 0, a.Width - 1 do
          local r1, g1, b1 = a:Pixel(x, y)
          local r2, g2, b2 = b:Pixel(3 * x, 3 * y)
          T.truthy(r1 == r2 and g1 == g2 and b1 == b2, "preview pixel " .. x .. "," .. y)
        end
      end
    end)
    T.test("a missing output folder and a bad factor are refused", function()
      refuses(run(sample, tmp .. "/no-such-folder"), 1, "no such folder", "missing folder")
      refuses(run("--preview", "0", sample, tmp), 2, "--preview", "factor 0")
    end)
  end)
end

if example == "png2tiff" then
  local rgb1 = make_png("rgb1.png", 37, 23)
  local rgb2 = make_png("rgb2.png", 16, 9)
  local gray = make_png("gray.png", 29, 17, { gray = true })
  local bw = make_png("bw.png", 41, 13, { bw = true })

  -- The same pixels as a PPM/PGM/PBM file for libtiff's ppm2tiff.
  local function netpbm(png, kind)
    local p = assert(LoadPicture(png))
    local parts = {}
    for y = 0, p.Height - 1 do
      if kind == "P4" then
        local bytes, acc, bits = {}, 0, 0
        for x = 0, p.Width - 1 do
          local r, g, b = p:Pixel(x, y)
          acc = acc * 2 + ((r + g + b <= 127) and 1 or 0)
          bits = bits + 1
          if bits == 8 then bytes[#bytes + 1] = string.char(acc); acc, bits = 0, 0 end
        end
        if bits > 0 then bytes[#bytes + 1] = string.char(acc << (8 - bits)) end
        parts[#parts + 1] = table.concat(bytes)
      else
        for x = 0, p.Width - 1 do
          local r, g, b = p:Pixel(x, y)
          parts[#parts + 1] = kind == "P6" and string.char(r, g, b) or string.char(r)
        end
      end
    end
    local header = kind == "P4" and string.format("P4\n%d %d\n", p.Width, p.Height)
      or string.format("%s\n%d %d\n255\n", kind, p.Width, p.Height)
    return T.write_bytes(png .. "." .. kind, header .. table.concat(parts))
  end

  -- A reference written only by libtiff's tools: ppm2tiff of the pixels, the tags png2tiff sets
  -- added with tiffset, then tiffcp with the compression; pages joined by tiffcp.
  local function reference(pngs, kind, compression, name)
    local pages = {}
    for i, png in ipairs(pngs) do
      local page = tmp .. "/" .. name .. "-ref" .. i .. ".tif"
      local cmd = table.concat({
        "ppm2tiff -c none -R 72 " .. q(netpbm(png, kind)) .. " " .. q(page),
        "tiffset -s 274 1 " .. q(page), "tiffset -s 266 1 " .. q(page),
        "tiffset -s 285 " .. q(png:match("[^/]*$")) .. " " .. q(page),
      }, " && ")
      T.truthy(sh(cmd .. " >/dev/null 2>&1"), "making the reference page " .. page)
      pages[#pages + 1] = q(page)
    end
    local ref = tmp .. "/" .. name .. "-ref.tif"
    T.truthy(sh("tiffcp -r 1 -c " .. compression .. " " .. table.concat(pages, " ") .. " " .. q(ref)
      .. " >/dev/null 2>&1"), "tiffcp of the reference")
    return ref
  end

  local function tiffcmp(a, b)
    local p = io.popen("tiffcmp " .. q(a) .. " " .. q(b) .. " 2>&1")
    local out = p:read("a")
    local ok = p:close()
    -- tiffcmp names each further directory it compares; anything else is a difference.
    local diff = out:gsub("Directory %d+:\n", "")
    return ok and diff == "", out
  end

  -- libtiff's tiffinfo reads the file without a word on stderr.
  local function libtiff_reads(path)
    local p = io.popen("tiffinfo -D " .. q(path) .. " 2>&1 >/dev/null")
    local err = p:read("a")
    return p:close() and err == "", err
  end

  T.group("png2tiff.lua output against libtiff's tools", function()
    for _, c in ipairs({ { "none", "none" }, { "lzw", "lzw" }, { "deflate", "zip" }, { "packbits", "packbits" } }) do
      T.test("RGB, two pages, " .. c[1] .. ": equal to tiffcp -c " .. c[2], function()
        local out = tmp .. "/rgb-" .. c[1] .. ".tif"
        local r = run("--compression", c[1], out, rgb1, rgb2)
        succeeds(r, "png2tiff")
        T.eq(count_matches(r.out, "page %d+:"), 2, "progress lines")
        T.truthy(libtiff_reads(out), "tiffinfo reads it")
        local same, diff = tiffcmp(reference({ rgb1, rgb2 }, "P6", c[2], "rgb-" .. c[1]), out)
        T.truthy(same, "tiffcmp: " .. diff)
      end)
    end
    T.test("8-bit grey, lzw: equal to tiffcp -c lzw of the grey pixels", function()
      local out = tmp .. "/gray8.tif"
      succeeds(run("--mode", "gray8", "--compression", "lzw", out, gray), "png2tiff")
      T.truthy(libtiff_reads(out), "tiffinfo reads it")
      local same, diff = tiffcmp(reference({ gray }, "P5", "lzw", "gray8"), out)
      T.truthy(same, "tiffcmp: " .. diff)
    end)
    T.test("bilevel, g4: equal to tiffcp -c g4 of the bits", function()
      local out = tmp .. "/bw.tif"
      succeeds(run("--mode", "bw", "--compression", "g4", out, bw), "png2tiff")
      T.truthy(libtiff_reads(out), "tiffinfo reads it")
      local same, diff = tiffcmp(reference({ bw }, "P4", "g4", "bw"), out)
      T.truthy(same, "tiffcmp: " .. diff)
    end)
    T.test("big-endian and little-endian files hold the same image", function()
      local big, little = tmp .. "/big.tif", tmp .. "/little.tif"
      succeeds(run("--endian", "big", "--compression", "lzw", big, rgb1), "big")
      succeeds(run("--endian", "little", "--compression", "lzw", little, rgb1), "little")
      T.eq(T.read_bytes(big):sub(1, 2), "MM", "big-endian header")
      T.eq(T.read_bytes(little):sub(1, 2), "II", "little-endian header")
      local same, diff = tiffcmp(big, little)
      T.truthy(same, "tiffcmp: " .. diff)
    end)
    T.test("16-bit grey and JPEG files open in libtiff with the settings asked for", function()
      local g16, jpeg = tmp .. "/gray16.tif", tmp .. "/jpeg.tif"
      succeeds(run("--mode", "gray16", "--compression", "deflate", g16, gray), "gray16")
      succeeds(run("--compression", "jpeg", "--quality", "90", jpeg, rgb1, rgb2), "jpeg")
      T.truthy(libtiff_reads(g16), "tiffinfo reads the grey file")
      T.truthy(libtiff_reads(jpeg), "tiffinfo reads the JPEG file")
      local info = io.popen("tiffinfo " .. q(g16) .. " " .. q(jpeg) .. " 2>&1"):read("a")
      T.truthy(info:find("Bits/Sample: 16", 1, true), "16 bits")
      T.truthy(info:find("Compression Scheme: AdobeDeflate", 1, true), "deflate")
      T.eq(count_matches(info, "Compression Scheme: JPEG"), 2, "two JPEG pages")
    end)
    T.test("transparency becomes an alpha sample and reads back", function()
      -- A PNG with alpha: the sample's soft-edged disc, by tiff2png.
      local dir = tmp .. "/disc"
      os.execute("mkdir -p " .. q(dir))
      succeeds(run_tool("tiff2png", sample, dir), "tiff2png")
      local png = dir .. "/sample-1.png"
      local out = tmp .. "/alpha.tif"
      succeeds(run("--compression", "lzw", out, png), "png2tiff")
      local info = io.popen("tiffinfo " .. q(out) .. " 2>&1"):read("a")
      T.truthy(info:find("Extra Samples: 1<unassoc-alpha>", 1, true), "an alpha sample")
      local back = tmp .. "/disc-back"
      os.execute("mkdir -p " .. q(back))
      succeeds(run_tool("tiff2png", out, back), "tiff2png of the copy")
      local a, b = assert(LoadPicture(png)), assert(LoadPicture(back .. "/alpha-0.png"))
      for y = 0, a.Height - 1 do
        for x = 0, a.Width - 1 do
          T.eq(b.Mask:Pixel(x, y), a.Mask:Pixel(x, y), "mask at " .. x .. "," .. y)
        end
      end
    end)
    T.test("--icc and --xmp embed the files' bytes in every page", function()
      local icc, xmp = tmp .. "/profile.icc", tmp .. "/packet.xmp"
      T.write_bytes(icc, string.rep("\0\1icc", 100))
      T.write_bytes(xmp, '<x:xmpmeta xmlns:x="adobe:ns:meta/">pages</x:xmpmeta>')
      local out = tmp .. "/meta.tif"
      succeeds(run("--icc", icc, "--xmp", xmp, out, rgb1, rgb2), "png2tiff")
      local info = io.popen("tiffinfo " .. q(out) .. " 2>&1"):read("a")
      T.eq(count_matches(info, "ICC Profile: <present>, 500 bytes"), 2, "ICC profile in both pages")
      T.eq(count_matches(info, "XMLPacket"), 2, "XMP in both pages")
    end)
    T.test("settings that do not fit together, and files that are no PNG", function()
      refuses(run("--compression", "g4", tmp .. "/x.tif", rgb1), 2, "g4 needs --mode bw", "g4 with rgb")
      refuses(run("--compression", "jpeg", "--mode", "bw", tmp .. "/x.tif", bw), 2, "jpeg needs", "jpeg with bw")
      refuses(run("--mode", "cmyk", tmp .. "/x.tif", rgb1), 2, "--mode must be one of", "bad mode")
      refuses(run(tmp .. "/x.tif", rgb1, sample), 1, "not a PNG", "a TIFF among the PNGs")
      T.falsy(io.open(tmp .. "/x.tif"), "no half-written output is left behind")
    end)
  end)

  T.group("png2tiff.lua on every file of the corpus", function()
    -- Every one of them is refused as a PNG, cleanly.
    for n, file in ipairs(corpus) do
      T.test(file.name, function()
        local r = run(tmp .. "/corpus" .. n .. ".tif", file.path)
        refuses(r, 1, "not a PNG", file.name)
      end)
    end
  end)
end

if example == "tiffsplit" then
  T.group("tiffsplit.lua pages", function()
    T.test("the sample splits into three files with the pages' pixels", function()
      local prefix = tmp .. "/sample-"
      local r = run(sample, prefix)
      succeeds(r, "sample")
      T.eq(count_matches(r.out, "page %d+:"), 3, "progress lines")
      -- libtiff's own split of the bilevel page holds the same bits (tags aside).
      T.truthy(sh("cd " .. q(tmp) .. " && tiffsplit " .. q(sample) .. " libtiff- >/dev/null 2>&1"), "libtiff's tiffsplit")
      local p = io.popen("tiffcmp " .. q(tmp .. "/libtiff-aac.tif") .. " " .. q(prefix .. "aac.tif") .. " 2>&1")
      local diff = p:read("a"); p:close()
      T.falsy(diff:find("differ", 1, true) or diff:find("Scanline", 1, true), "bilevel pixels: " .. diff)
      local info = io.popen("tiffinfo " .. q(prefix .. "aab.tif") .. " 2>&1"):read("a")
      T.truthy(info:find("Extra Samples: 1<unassoc-alpha>", 1, true), "the alpha page keeps its alpha")
      T.truthy(info:find("ImageDescription: RGBA disc with soft edge", 1, true), "and its description")
    end)
  end)
end

if example == "tiffjoin" then
  T.group("tiffjoin.lua pages", function()
    T.test("two files join into one with all their pages in order", function()
      local a, b = tmp .. "/a.tif", tmp .. "/b.tif"
      T.truthy(sh("tiffcp " .. q(T.testdata("libtiff/images/rgb-3c-8b.tiff")) .. " " .. q(a) .. " && tiffcp "
        .. q(T.testdata("libtiff/images/miniswhite-1c-1b.tiff")) .. " " .. q(b)), "inputs")
      local out = tmp .. "/ab.tif"
      local r = run(out, a, b)
      succeeds(r, "join")
      T.eq(libtiff_pages(out), 2, "pages")
      local info = io.popen("tiffinfo " .. q(out) .. " 2>&1"):read("a")
      local first, second = info:find("Photometric Interpretation: RGB color", 1, true),
        info:find("Photometric Interpretation: min-is-white", 1, true)
      T.truthy(first and second and first < second, "RGB page first, bilevel page second")
    end)
  end)
end

T.finish()
