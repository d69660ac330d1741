// Allocation failures: every operation is run once per allocation it makes, with exactly that
// allocation failing (host memory blocks, pictures, strings and objects through the host's
// fault injection; the plugin's plain and relocatable memory through its test seam). The result
// must be the operation's failure value or its normal result, and nothing may leak or unbalance.
#include <functional>
#include <map>

#include "bridge/memory.h"
#include "hard_test_support.h"
#include "tqvhost/host.h"

namespace hard {
namespace {

using tqvhost::TypeKind;
using tqvhost::Value;

// A kind of allocation that can be made to fail.
struct FaultKind {
    const char* name;
    std::function<void(int64_t)> arm;
    std::function<bool()> armed;
};

std::vector<FaultKind> Kinds() {
    std::vector<FaultKind> kinds;
    for (const char* host : {"memoryblock", "picture", "string", "object"})
        kinds.push_back({host, [host](int64_t n) { tqvhost::failAllocation(host, n); },
                         [host] { return tqvhost::allocationFailureArmed(host); }});
    for (auto [name, fault] : {std::pair{"plain memory", tqv::AllocationFault::PlainMemory},
                               std::pair{"relocatable", tqv::AllocationFault::Relocatable}})
        kinds.push_back({name, [fault](int64_t n) { tqv::FailAllocationAfter(fault, n); },
                         [fault] { return tqv::AllocationFailureArmed(fault); }});
    return kinds;
}

const std::string& Bytes(const std::string& relative) {
    static std::map<std::string, std::string> cache;
    auto it = cache.find(relative);
    if (it == cache.end()) it = cache.emplace(relative, ReadFile(TestData(relative))).first;
    return it->second;
}

const char* const kRgb = "libtiff/images/rgb-3c-8b.tiff";
const char* const kBilevel = "libtiff/images/miniswhite-1c-1b.tiff";
const char* const kPalette = "libtiff/images/palette-1c-8b.tiff";

// The session an operation starts from, prepared with no fault armed.
struct Prepared {
    Session session;
    Session other;  // a second session for operations that take one
};

Session& Opened(Prepared& p, const char* file) {
    EXPECT_TRUE(p.session.Call("OpenString", {hard::Bytes(Bytes(file))}).b);
    return p.session;
}

// A session writing into memory with a picture (and mask) to write.
Session& Writing(Prepared& p) {
    EXPECT_TRUE(p.other.Call("OpenString", {hard::Bytes(Bytes(kRgb))}).b);
    EXPECT_TRUE(p.other.Call("ReadRGB").b);
    EXPECT_TRUE(p.session.Call("CreateString", {Int(0)}).b);
    p.session.Set("Pict", p.other.Get("Pict"));
    return p.session;
}

struct Operation {
    const char* name;
    std::function<Value(Prepared&)> run;  // prepares (unarmed) via the helpers, arms, runs
    std::function<void(Prepared&)> prepare;
    // Whether the result (and the session) show the failure as documented.
    bool (*failed)(const Value&, Session&);
};

bool IsFalse(const Value& v, Session&) {
    return !v.b;
}
bool IsNil(const Value& v, Session&) {
    return !v.handle;
}
// The picture reads report success when a picture cannot be made and leave its slot nil.
bool NoPicture(const Value& v, Session& s) {
    return !v.b || !s.Get("Pict").handle;
}
bool NoPictureOrMask(const Value& v, Session& s) {
    return NoPicture(v, s) || !s.Get("Mask").handle;
}

Value ReadRgbMemoryTile(Session& s) {
    return s.Call("ReadRGBMemoryStep", {Int(10), Int(10), Int(40), Int(30)});
}

std::vector<Operation> Operations() {
    auto open = [](const char* file) { return [file](Prepared& p) { Opened(p, file); }; };
    auto none = [](Prepared&) {};
    const Value lut = Colours({0x000000, 0x0000FF, 0x00FF00, 0xFF0000, 0xFFFFFF});
    return {
        {"OpenString", [](Prepared& p) { return p.session.Call("OpenString", {hard::Bytes(Bytes(kRgb))}); },
         none, IsFalse},
        {"ReadRGB", [](Prepared& p) { return p.session.Call("ReadRGB"); }, open(kRgb), NoPictureOrMask},
        {"ReadPreviewRGB", [](Prepared& p) { return p.session.Call("ReadPreviewRGB", {Int(2)}); }, open(kRgb),
         NoPictureOrMask},
        {"ReadRGB(ErrorMessage)",
         [](Prepared& p) { return p.session.Call("ReadRGB", {Ref(Nil(TypeKind::String))}); }, open(kRgb),
         IsNil},
        {"ReadBW", [](Prepared& p) { return p.session.Call("ReadBW"); }, open(kBilevel), NoPicture},
        {"ReadPreviewBW", [](Prepared& p) { return p.session.Call("ReadPreviewBW"); }, open(kBilevel),
         NoPicture},
        {"ReadWithLUT", [lut](Prepared& p) { return p.session.Call("ReadWithLUT", {lut}); }, open(kPalette),
         NoPicture},
        {"ReadRGBMemoryStep", [](Prepared& p) { return ReadRgbMemoryTile(p.session); },
         [](Prepared& p) {
             Opened(p, kRgb);
             EXPECT_TRUE(p.session.Call("ReadRGBMemoryBegin", {Ref(Nil(TypeKind::String))}).b);
         },
         IsNil},
        {"GetColorMap",
         [](Prepared& p) {
             return p.session.Call("GetColorMap",
                                   {Ref(Nil(TypeKind::MemoryBlock)), Ref(Nil(TypeKind::MemoryBlock)),
                                    Ref(Nil(TypeKind::MemoryBlock))});
         },
         open(kPalette), IsFalse},
        {"Scanlines",
         [](Prepared& p) {
             return p.session.Call("Scanlines", {Int(0), Int(20)});
         },
         open(kRgb), IsNil},
        {"Software", [](Prepared& p) { return p.session.Get("VersionString"); }, open(kRgb), IsNil},
        {"SetFieldString",
         [](Prepared& p) {
             return p.session.Call("SetFieldString", {Int(270), Text("a description")});
         },
         open(kRgb), IsFalse},
        {"CombinePictureWithMask", [](Prepared& p) { return p.session.Call("CombinePictureWithMask"); },
         [](Prepared& p) { EXPECT_TRUE(Opened(p, kRgb).Call("ReadRGB").b); }, IsNil},
        {"MirrorVertical", [](Prepared& p) { return p.session.Call("MirrorVertical", {Object(p.other)}); },
         [](Prepared& p) {
             Opened(p, kRgb);
             EXPECT_TRUE(p.other.Call("OpenString", {hard::Bytes(Bytes(kRgb))}).b);
         },
         IsFalse},
        {"CreateString", [](Prepared& p) { return p.session.Call("CreateString", {Int(0)}); }, none, IsFalse},
        {"WriteRGB", [](Prepared& p) { return p.session.Call("WriteRGB"); }, [](Prepared& p) { Writing(p); },
         IsFalse},
        {"WriteGray", [](Prepared& p) { return p.session.Call("WriteGray"); },
         [](Prepared& p) { Writing(p); }, IsFalse},
        {"WriteBW", [](Prepared& p) { return p.session.Call("WriteBW"); }, [](Prepared& p) { Writing(p); },
         IsFalse},
        {"OutputBuffer after Close",
         [](Prepared& p) {
             p.session.Call("Close");
             return p.session.Get("OutputBuffer");
         },
         [](Prepared& p) { EXPECT_TRUE(Writing(p).Call("WriteRGB").b); }, IsNil},
        {"TIFFStringToPictureTQV",
         [](Prepared&) { return CallGlobal("TIFFStringToPictureTQV", {hard::Bytes(Bytes(kRgb))}); }, none,
         IsNil},
        {"TIFFStringToTiffPictureTQV",
         [](Prepared&) { return CallGlobal("TIFFStringToTiffPictureTQV", {hard::Bytes(Bytes(kRgb))}); }, none,
         IsNil},
        {"OpenAsTiffTQV",
         [](Prepared&) { return CallExtension("OpenAsTiffTQV", File(TestData(kRgb)), {Bool(false)}); }, none,
         IsNil},
    };
}

// Which failures must show: the allocation that makes the operation's result.
const std::multimap<std::string, std::string>& MustFail() {
    static const std::multimap<std::string, std::string> kMust = {
        {"ReadBW", "picture"},
        {"ReadWithLUT", "picture"},
        {"ReadRGB(ErrorMessage)", "memoryblock"},
        {"ReadRGBMemoryStep", "memoryblock"},
        {"GetColorMap", "memoryblock"},
        {"Scanlines", "memoryblock"},
        {"CombinePictureWithMask", "picture"},
        {"CreateString", "relocatable"},
        {"OutputBuffer after Close", "string"},
        {"TIFFStringToPictureTQV", "picture"},
        {"TIFFStringToTiffPictureTQV", "object"},
        {"OpenAsTiffTQV", "object"},
    };
    return kMust;
}

constexpr int64_t kMaxAllocationsPerOperation = 400;

class FaultInjection : public HardTest {
  protected:
    int64_t injected_ = 0;
};

// One run with the nth allocation of `kind` failing; false once the operation makes fewer than
// n allocations of that kind (the fault was never hit).
bool RunWithFault(const Operation& op, const FaultKind& kind, int64_t n, bool* failed) {
    const int64_t before = Live();
    bool hit = false;
    {
        Prepared p;
        op.prepare(p);
        kind.arm(n);
        const Value result = op.run(p);
        hit = !kind.armed();
        kind.arm(0);
        *failed = op.failed(result, p.session);
        (void)tqvhost::takeRaisedException();  // an OutOfMemoryException is an allowed outcome
    }
    EXPECT_EQ(Live(), before) << "unbalanced after the failing allocation";
    for (const auto& e : tqvhost::takeAccountingErrors()) ADD_FAILURE() << "host accounting error: " << e;
    return hit;
}

TEST_F(FaultInjection, EveryAllocationOfEveryOperation) {
    const auto kinds = Kinds();
    int64_t injected = 0;
    for (const Operation& op : Operations()) {
        {
            Prepared p;
            op.prepare(p);
            const Value result = op.run(p);
            ASSERT_FALSE(op.failed(result, p.session)) << op.name << " fails without any fault";
        }
        for (const FaultKind& kind : kinds) {
            SCOPED_TRACE(std::string(op.name) + " with " + kind.name + " allocation");
            bool sawFailure = false;
            for (int64_t n = 1; n <= kMaxAllocationsPerOperation; ++n) {
                SCOPED_TRACE("allocation " + std::to_string(n));
                bool failed = false;
                const int parts =
                    ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
                if (!RunWithFault(op, kind, n, &failed)) break;
                ++injected;
                sawFailure = sawFailure || failed;
                // One report per operation and kind is enough.
                if (::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count() !=
                    parts)
                    break;
            }
            const auto range = MustFail().equal_range(op.name);
            for (auto it = range.first; it != range.second; ++it)
                if (it->second == kind.name) {
                    EXPECT_TRUE(sawFailure) << "a failed " << kind.name << " went unnoticed";
                }
        }
    }
    RecordProperty("faults_injected", std::to_string(injected));
    std::printf("faults injected: %lld\n", static_cast<long long>(injected));
}

}  // namespace
}  // namespace hard
