// Shared by the host unit tests: one host configuration for the whole process, and typed access
// to services through lookup() as a plugin would do it.
#ifndef TQV_TESTS_HOST_SUPPORT_H
#define TQV_TESTS_HOST_SUPPORT_H

#include <gtest/gtest.h>

#include "tqv/plugin_abi.h"
#include "tqvhost/host.h"

namespace tqvhost::test {

// "REALYieldToRB" is withheld in this process to test withholding.
inline void configureOnce() {
    static bool done = [] {
        Config c;
        c.app = AppKind::Console;
        c.withheld = {"REALYieldToRB"};
        configure(c);
        return true;
    }();
    (void)done;
}

template <class Proc>
Proc service(const char* name) {
    configureOnce();
    void* p = lookup(name);
    EXPECT_NE(p, nullptr) << name;
    return reinterpret_cast<Proc>(p);
}

// Checks that a test leaves the plugin's account as it found it and reports no accounting error.
class HostTest : public ::testing::Test {
  protected:
    void SetUp() override {
        configureOnce();
        takeAccountingErrors();
        before_ = live().total;
    }
    void TearDown() override {
        EXPECT_EQ(live().total, before_) << "plugin references leaked";
        auto errors = takeAccountingErrors();
        EXPECT_TRUE(errors.empty()) << errors.front();
    }

  private:
    int64_t before_ = 0;
};

}  // namespace tqvhost::test

#endif  // TQV_TESTS_HOST_SUPPORT_H
