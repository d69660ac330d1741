// The in-process host for the plugin's unit tests: one host configuration per process, chosen by
// environment variables (TQV_TEST_HOST_VERSION, TQV_TEST_APP, TQV_TEST_WITHHOLD=a,b), and a
// resolver that counts the calls of the string services the version gates choose between.
#ifndef TQV_TESTS_PLUGIN_TEST_HOST_H
#define TQV_TESTS_PLUGIN_TEST_HOST_H

#include <gtest/gtest.h>
#include <tqv/plugin_abi.h>

#include <string>
#include <string_view>

#include "tqvhost/handles.h"

namespace testhost {

// Calls that reached the host's "PluginGetStringData" and "REALConvertString" so far.
extern int gStringDataCalls;
extern int gConvertStringCalls;

// The resolver the plugin code uses in these tests.
void* Lookup(const char* name);
// A resolver that knows nothing (every service missing).
void* NothingLookup(const char* name);

double HostVersion();
bool Withheld(const std::string& name);

// A host string the test (the host side) holds; the plugin only borrows it.
tqvhost::HostRef HostString(std::string_view bytes, uint32_t encoding);
REALstring AsString(const tqvhost::HostRef& ref);
// The bytes and encoding of a string through its public head.
std::string Bytes(REALstring s);
uint32_t Encoding(REALstring s);

// Checks after each test that the plugin's references balance and the host saw no faults.
class HostTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

  private:
    int64_t before_ = 0;
};

}  // namespace testhost

#endif  // TQV_TESTS_PLUGIN_TEST_HOST_H
