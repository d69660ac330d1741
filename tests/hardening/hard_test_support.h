// Shared by the hardening test files: the host started once per process, the reference-balance
// check around every test, and file helpers.
#ifndef TQV_TESTS_HARDENING_HARD_TEST_SUPPORT_H
#define TQV_TESTS_HARDENING_HARD_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "read_everything.h"
#include "session_driver.h"

namespace hard {

// Checks after each test that the plugin's references balance, the host saw no accounting fault
// and no injected fault is left armed.
class HardTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

  private:
    int64_t before_ = 0;
};

std::string ReadFile(const std::string& path);
std::string TestData(const std::string& relative);  // under the shared test data folder
std::string CorpusDir();
std::string ScratchPath(const std::string& name);
// Regular files below `dir` (recursively), sorted.
std::vector<std::string> FilesBelow(const std::string& dir);

}  // namespace hard

#endif  // TQV_TESTS_HARDENING_HARD_TEST_SUPPORT_H
