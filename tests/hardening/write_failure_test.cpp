// Write failures: a file-size limit (RLIMIT_FSIZE with SIGXFSZ ignored, as a full quota looks to
// a process) and a full device (/dev/full). WriteRGB, AddImage and Close must report through the
// result and the Error event, and the host must keep running. The limit is set in a child process
// so that it cannot reach the test runner's own files.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "hard_test_support.h"

namespace hard {
namespace {

const char* const kRgb = "libtiff/images/rgb-3c-8b.tiff";  // 157 x 151, 71 KB of pixels

// Counts the expectations that did not hold in the child; its exit status is that count.
struct ChildChecks {
    int failures = 0;
    void Expect(bool ok, const char* what) {
        if (ok) return;
        ++failures;
        std::fprintf(stderr, "write failure check failed: %s\n", what);
    }
};

// Runs body in a child process and expects it to exit with status 0 (not by a signal).
template <class Body>
void InChild(Body body) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        ChildChecks checks;
        body(checks);
        std::fflush(nullptr);
        _exit(checks.failures > 100 ? 100 : checks.failures);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status)) << "the child died by signal "
                                   << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    EXPECT_EQ(WEXITSTATUS(status), 0) << "checks failed in the child (see its messages above)";
}

void LimitFileSize(rlim_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, bytes};
    setrlimit(RLIMIT_FSIZE, &limit);
}

// A session holding a test picture in Pict, with a new file created for writing.
void PictureInto(Session& s, const std::string& path, const char* picture = kRgb) {
    Session source;
    source.Call("OpenString", {hard::Bytes(ReadFile(TestData(picture)))});
    source.Call("ReadRGB");
    s.Call("Create", {File(path)});
    s.Set("Pict", source.Get("Pict"));
}

class WriteFailures : public HardTest {};

TEST_F(WriteFailures, FileSizeLimitDuringWriteRgb) {
    const std::string path = ScratchPath("fsize_write.tif");
    InChild([&](ChildChecks& c) {
        LimitFileSize(16 * 1024);
        Session s;
        PictureInto(s, path);
        const int64_t errors = ErrorEvents();
        c.Expect(!s.Call("WriteRGB").b, "WriteRGB past the limit gives false");
        c.Expect(ErrorEvents() > errors, "WriteRGB past the limit raises Error");
        c.Expect(!s.Call("AddImage").b, "AddImage after a failed write gives false");
        s.Call("Close");
        // The host and the plugin are still usable.
        c.Expect(s.Call("OpenString", {hard::Bytes(ReadFile(TestData(kRgb)))}).b, "a later open works");
        c.Expect(s.Call("ReadRGB").b, "a later read works");
    });
}

// The pixels of a small picture stay in libtiff's strip buffer until the directory is written, so
// the limit strikes in AddImage or Close.
TEST_F(WriteFailures, FileSizeLimitDuringAddImageAndClose) {
    const std::string path = ScratchPath("fsize_close.tif");
    InChild([&](ChildChecks& c) {
        LimitFileSize(256);  // the header and 192 bytes of pixels fit, the directory does not
        Session s;
        PictureInto(s, path, "libtiff/images/testfax3_bug_513.tiff");  // 32 x 2: one strip
        s.Call("SetFieldString", {Int(270), Text(std::string(200, 'x'))});
        c.Expect(s.Call("WriteRGB").b, "the rows fit in libtiff's buffer");
        int64_t errors = ErrorEvents();
        c.Expect(!s.Call("AddImage").b, "AddImage past the limit gives false");
        c.Expect(ErrorEvents() > errors, "AddImage past the limit raises Error");
        errors = ErrorEvents();
        s.Call("WriteRGB");
        s.Call("Close");
        c.Expect(ErrorEvents() > errors, "Close past the limit raises Error");
        c.Expect(s.Call("ImageCount").i == 0, "nothing open after Close");
    });
}

TEST_F(WriteFailures, FullDevice) {
    InChild([&](ChildChecks& c) {
        Session s;
        const int64_t errors = ErrorEvents();
        c.Expect(!s.Call("Create", {File("/dev/full")}).b, "Create on a full device gives false");
        c.Expect(ErrorEvents() > errors, "Create on a full device raises Error");
        c.Expect(!s.Call("WriteRGB").b, "nothing to write into");
        s.Call("Close");
    });
}

}  // namespace
}  // namespace hard
