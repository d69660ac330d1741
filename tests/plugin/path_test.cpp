// Folder item to POSIX path: existing items byte for byte, new names decomposed.
#include "bridge/path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "plugin_test_host.h"
#include "tqvhost/values.h"

namespace {

class Path : public testhost::HostTest {
  protected:
    void SetUp() override {
        HostTest::SetUp();
        char pattern[] = "/tmp/tqv-path-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        folder_ = pattern;
    }
    void TearDown() override {
        for (const auto& f : created_) std::remove(f.c_str());
        rmdir(folder_.c_str());
        HostTest::TearDown();
    }
    std::string Touch(const std::string& name) {
        const std::string path = folder_ + "/" + name;
        if (FILE* f = std::fopen(path.c_str(), "wb")) std::fclose(f);
        created_.push_back(path);
        return path;
    }
    static std::string PathOf(const std::string& itemPath) {
        tqvhost::HostRef item(tqvhost::makeHandle<tqvhost::FolderItemHandle>(itemPath));
        tqv::rbPath path(static_cast<REALfolderItem>(item.address()));
        const char* p = path.GetUnixPath();
        return p == nullptr ? std::string("<nil>") : std::string(p);
    }

    std::string folder_;
    std::vector<std::string> created_;
};

// "café" with a precomposed é (NFC) and with e + combining acute (NFD).
const std::string kComposed = "caf\xC3\xA9.tif";
const std::string kDecomposed = "cafe\xCC\x81.tif";

TEST_F(Path, ExistingFileKeepsItsBytes) {
    const std::string existing = Touch(kComposed);
    EXPECT_EQ(PathOf(existing), existing);
}

TEST_F(Path, NewFileNameIsDecomposed) {
    EXPECT_EQ(PathOf(folder_ + "/" + kComposed), folder_ + "/" + kDecomposed);
}

TEST_F(Path, NewAsciiNameIsUnchanged) {
    EXPECT_EQ(PathOf(folder_ + "/new.tif"), folder_ + "/new.tif");
}

TEST_F(Path, NoPathWithoutAnExistingParent) {
    EXPECT_EQ(PathOf(folder_ + "/missing/new.tif"), "<nil>");
}

TEST_F(Path, NilItemHasNoPath) {
    tqv::rbPath path(nullptr);
    EXPECT_EQ(path.GetUnixPath(), nullptr);
    EXPECT_EQ(tqv::UnixFilePath(nullptr), nullptr);
}

}  // namespace
