// Hostile and broken files: the kept corpus (tests/corpus, one README line per file), the hostile
// files among the shared test data, and good files truncated at many points. Each is opened from a
// string and from a file and read in every way; nothing may crash, hang, leak or unbalance.
#include <algorithm>
#include <filesystem>
#include <set>

#include "hard_test_support.h"

namespace hard {
namespace {

bool IsTiffCandidate(const std::string& path) {
    static const std::set<std::string> kSkipped = {".md", ".txt", ".tsv", ".py", ".sh"};
    return kSkipped.count(std::filesystem::path(path).extension().string()) == 0;
}

std::vector<std::string> Candidates(const std::string& dir) {
    std::vector<std::string> files = FilesBelow(dir);
    files.erase(std::remove_if(files.begin(), files.end(), [](const auto& f) { return !IsTiffCandidate(f); }),
                files.end());
    return files;
}

// Opening the file itself takes libtiff's other I/O path (read and seek on a descriptor, mapping).
void ReadFileOnDisk(const std::string& path) {
    Session s;
    if (s.Call("Open", {File(path)}).b) {
        ReadHeaders(s, 4);
        (void)ReadPictures(s, 0x1234);
    }
    s.Call("Close");
    const tqvhost::Value opened = CallExtension("OpenAsTiffTQV", File(path), {Bool(false)});
    (void)opened;
}

class Corpus : public HardTest {};

TEST_F(Corpus, KeptFilesFailCleanly) {
    const auto files = Candidates(CorpusDir());
    ASSERT_GE(files.size(), 25u);
    for (const std::string& path : files) {
        SCOPED_TRACE(path);
        const std::string bytes = ReadFile(path);
        const ReadOutcome out = ReadEverything(bytes);
        ReadFileOnDisk(path);
        // A claim of more pixels than one decode may take is refused, however few bytes back it.
        if (path.find("/claims_") != std::string::npos) {
            EXPECT_FALSE(out.rgb);
        }
    }
}

// A file of a few hundred bytes that claims 100000 x 100000 pixels is refused before anything of
// that size is allocated.
TEST_F(Corpus, HugeClaimsAllocateNothingOfTheirSize) {
    const std::string bytes = ReadFile(CorpusDir() + "/claims_100000x100000.tif");
    Session s;
    ASSERT_TRUE(s.Call("OpenString", {Bytes(bytes)}).b);
    EXPECT_EQ(s.Get("Width").i, 100000);
    EXPECT_FALSE(s.Call("ReadRGB").b);
    EXPECT_FALSE(s.Call("ReadBW").b);
    EXPECT_FALSE(s.Call("ReadPreviewRGB", {Int(4)}).b);
    // A picture side the host cannot hold is a success without a picture for the scanline reads.
    (void)s.Call("ReadWithLUT", {Colours({0, 0xFFFFFF})});
    EXPECT_EQ(s.Call("Scanlines", {Int(0), Int(100000)}).handle.get(), nullptr);
    EXPECT_EQ(s.Get("Pict").handle.get(), nullptr);
}

// One LZW strip that would decode to 768 MiB: libtiff's per-allocation bound refuses it.
TEST_F(Corpus, OneStripBeyondTheAllocationBound) {
    const std::string bytes = ReadFile(CorpusDir() + "/claims_16384x16384_lzw_one_strip.tif");
    Session s;
    ASSERT_TRUE(s.Call("OpenString", {Bytes(bytes)}).b);
    const int64_t errors = ErrorEvents();
    EXPECT_FALSE(s.Call("ReadRGB").b);
    EXPECT_GT(ErrorEvents(), errors);
    EXPECT_EQ(s.Get("Pict").handle.get(), nullptr);
}

TEST_F(Corpus, SharedHostileFiles) {
    const auto files = Candidates(TQV_TESTDATA_DIR);
    ASSERT_GE(files.size(), 300u);
    for (const std::string& path : files) {
        SCOPED_TRACE(path);
        (void)ReadEverything(ReadFile(path), 4);
    }
}

// Every prefix a truncated download or a full disk could leave: inside the header, the directory,
// the tag data and the strips.
TEST_F(Corpus, TruncatedFiles) {
    const char* const kSeeds[] = {
        "libtiff/images/rgb-3c-8b.tiff",
        "libtiff/images/palette-1c-8b.tiff",
        "libtiff/images/miniswhite-1c-1b.tiff",
        "libtiff/images/quad-tile.jpg.tiff",
        "libtiff/images/32bpp-None-jpeg.tiff",
        "libtiff/images/testfax3_bug_513.tiff",
        "libtiff/images/minisblack-2c-8b-alpha.tiff",
        "libtiff/images/test_two_ifds.tif",
    };
    for (const char* seed : kSeeds) {
        const std::string bytes = ReadFile(TestData(seed));
        ASSERT_FALSE(bytes.empty()) << seed;
        std::set<size_t> cuts;
        for (size_t n = 0; n <= 24 && n < bytes.size(); ++n) cuts.insert(n);
        for (size_t k = 1; k < 40; ++k) cuts.insert(bytes.size() * k / 40);
        cuts.insert(bytes.size() - 1);
        for (size_t cut : cuts) {
            SCOPED_TRACE(std::string(seed) + " cut at " + std::to_string(cut));
            const ReadOutcome out = ReadEverything(std::string_view(bytes).substr(0, cut), 2);
            if (cut < 8) {
                EXPECT_FALSE(out.opened);
            }
        }
    }
}

}  // namespace
}  // namespace hard
