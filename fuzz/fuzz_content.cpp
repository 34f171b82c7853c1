// Content-stream fuzz target: the bytes are one page's decoded content.
// They go through the base handler's rewrite and the three analysing
// handlers; the rewrite must read back as the very operators it wrote, and
// rewriting it again must give the same bytes.
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "base/ASMem.h"
#include "content/ContentHandler.h"
#include "content/Placement.h"
#include "content/ResourceUse.h"
#include "content/TextTracking.h"
#include "pdfcore/CosDoc.h"
#include "fuzz/FuzzInit.h"

namespace {

class Counter : public ContentHandler {
public:
    Counter() { m_out.SetEnabled(false); }
    void Operator(std::string_view op) override { ++ops[std::string(op)]; }
    std::map<std::string, long> ops;
};

std::span<const uint8_t> Bytes(const std::string& s) {
    return {reinterpret_cast<const uint8_t*>(s.data()), s.size()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    StartCoreOnce();
    std::span<const uint8_t> in(data, size);

    ContentHandler rewrite;
    rewrite.SetRemoveMarkedContent(size > 0 && (data[0] & 1));
    rewrite.RunContent(in);
    const std::string once = rewrite.Out().Text();

    ContentHandler again;
    again.RunContent(Bytes(once));
    Counter a, b;
    a.RunContent(Bytes(once));
    b.RunContent(Bytes(again.Out().Text()));
    if (a.ops != b.ops) __builtin_trap();
    // Rewriting is idempotent: a rewritten stream comes back byte for byte.
    if (again.Out().Text() != once) __builtin_trap();

    ResourceUseHandler use;
    use.RunContent(in);
    TextTrackingHandler text;
    text.RunContent(in);
    text.Finish();
    PlacementHandler place;
    place.RunContent(in);
    return 0;
}
