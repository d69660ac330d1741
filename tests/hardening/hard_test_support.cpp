#include "hard_test_support.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "bridge/memory.h"
#include "tqvhost/host.h"

namespace hard {

namespace {
void DisarmAll() {
    for (const char* kind : {"memoryblock", "picture", "string", "object"}) tqvhost::failAllocation(kind, 0);
    tqv::FailAllocationAfter(tqv::AllocationFault::PlainMemory, 0);
    tqv::FailAllocationAfter(tqv::AllocationFault::Relocatable, 0);
}
}  // namespace

void HardTest::SetUp() {
    (void)tqvhost::takeAccountingErrors();
    (void)tqvhost::takeRaisedException();
    before_ = Live();
}

void HardTest::TearDown() {
    DisarmAll();
    EXPECT_EQ(Live(), before_) << "the plugin's references do not balance";
    const auto errors = tqvhost::takeAccountingErrors();
    for (const auto& e : errors) ADD_FAILURE() << "host accounting error: " << e;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

std::string TestData(const std::string& relative) {
    return std::string(TQV_TESTDATA_DIR) + "/" + relative;
}

std::string CorpusDir() {
    return TQV_CORPUS_DIR;
}

std::string ScratchPath(const std::string& name) {
    const std::string dir = std::string(TQV_SCRATCH_DIR) + "/hardening";
    std::filesystem::create_directories(dir);
    return dir + "/" + std::to_string(getpid()) + "_" + name;
}

std::vector<std::string> FilesBelow(const std::string& dir) {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir))
        if (entry.is_regular_file()) files.push_back(entry.path().string());
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace hard

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    const char* app = std::getenv("TQV_HARD_APP");
    hard::StartHost(app != nullptr && std::string(app) == "desktop" ? tqvhost::AppKind::Desktop
                                                                    : tqvhost::AppKind::Console);
    return RUN_ALL_TESTS();
}
