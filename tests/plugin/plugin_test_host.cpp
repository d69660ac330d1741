#include "plugin_test_host.h"

#include <cstdlib>
#include <cstring>
#include <sstream>

#include "bridge/services.h"
#include "tqvhost/host.h"
#include "tqvhost/strings.h"

namespace testhost {

int gStringDataCalls = 0;
int gConvertStringCalls = 0;

namespace {

REALGetStringDataProc gHostGetStringData = nullptr;
REALConvertStringProc gHostConvertString = nullptr;

bool CountingGetStringData(REALstring s, uint32_t encoding, REALstringData* out) {
    ++gStringDataCalls;
    return gHostGetStringData(s, encoding, out);
}

REALstring CountingConvertString(REALstring s, uint32_t encoding) {
    ++gConvertStringCalls;
    return gHostConvertString(s, encoding);
}

tqvhost::Config ConfigFromEnvironment() {
    tqvhost::Config config;
    if (const char* version = std::getenv("TQV_TEST_HOST_VERSION")) config.version = std::atof(version);
    if (const char* app = std::getenv("TQV_TEST_APP")) {
        const std::string kind = app;
        config.app = kind == "console" ? tqvhost::AppKind::Console
                     : kind == "web"   ? tqvhost::AppKind::Web
                     : kind == "none"  ? tqvhost::AppKind::None
                                       : tqvhost::AppKind::Desktop;
    }
    if (const char* withheld = std::getenv("TQV_TEST_WITHHOLD")) {
        std::stringstream names(withheld);
        for (std::string name; std::getline(names, name, ',');) {
            if (!name.empty()) config.withheld.insert(name);
        }
    }
    return config;
}

}  // namespace

void* Lookup(const char* name) {
    void* address = tqvhost::lookup(name);
    if (address == nullptr) return nullptr;
    if (std::strcmp(name, "PluginGetStringData") == 0) {
        gHostGetStringData = reinterpret_cast<REALGetStringDataProc>(address);
        return reinterpret_cast<void*>(&CountingGetStringData);
    }
    if (std::strcmp(name, "REALConvertString") == 0) {
        gHostConvertString = reinterpret_cast<REALConvertStringProc>(address);
        return reinterpret_cast<void*>(&CountingConvertString);
    }
    return address;
}

void* NothingLookup(const char*) {
    return nullptr;
}

double HostVersion() {
    return tqvhost::config().version;
}

bool Withheld(const std::string& name) {
    return tqvhost::config().withheld.count(name) != 0;
}

tqvhost::HostRef HostString(std::string_view bytes, uint32_t encoding) {
    return tqvhost::HostRef(tqvhost::newString(bytes, encoding));
}

REALstring AsString(const tqvhost::HostRef& ref) {
    return static_cast<REALstring>(ref.address());
}

std::string Bytes(REALstring s) {
    if (s == nullptr || s->buffer == nullptr) return {};
    return std::string(reinterpret_cast<const char*>(s->buffer) + 1, static_cast<size_t>(s->length));
}

uint32_t Encoding(REALstring s) {
    return s == nullptr ? 0 : s->encoding;
}

void HostTest::SetUp() {
    tqv::gResolver = &Lookup;
    tqv::ResetServiceCache();
    tqv::rbversion_rbversion = HostVersion();
    tqvhost::takeAccountingErrors();
    tqvhost::takeRaisedException();
    gStringDataCalls = 0;
    gConvertStringCalls = 0;
    before_ = tqvhost::live().total;
}

void HostTest::TearDown() {
    tqv::gResolver = &Lookup;
    tqv::ResetServiceCache();
    EXPECT_EQ(tqvhost::live().total, before_) << "the plugin's references do not balance";
    const auto faults = tqvhost::takeAccountingErrors();
    EXPECT_TRUE(faults.empty()) << (faults.empty() ? "" : faults.front());
}

}  // namespace testhost

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    tqvhost::configure(testhost::ConfigFromEnvironment());
    return RUN_ALL_TESTS();
}
