// JBIG2Decode through jbig2dec, with the JBIG2Globals segments first.
//
// JBIG2 marks black pixels with 1 bits; a PDF image with one bit per sample
// in DeviceGray reads 0 as black.  The decoded page is therefore inverted,
// as other PDF readers do, so the samples can be used like any other 1-bit
// image.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "filters/FilterStage.h"
#include "base/ASError.h"

// Last: the header is C and brings its own linkage block.
#include <jbig2.h>

namespace filters::detail {
namespace {

// An allocator that refuses to go past a budget, so a hostile page size
// ends in an error instead of exhausting memory.
struct BudgetAllocator {
    Jbig2Allocator base;
    uint64_t budget;
    uint64_t used;
};

struct BlockHeader {
    size_t size;
    size_t pad;  // keeps the caller's bytes 16-byte aligned
};

void* BudgetAlloc(Jbig2Allocator* a, size_t size) {
    auto* b = reinterpret_cast<BudgetAllocator*>(a);
    if (size > b->budget || b->used + size > b->budget) return nullptr;
    auto* h = static_cast<BlockHeader*>(std::malloc(sizeof(BlockHeader) + size));
    if (!h) return nullptr;
    h->size = size;
    b->used += size;
    return h + 1;
}

void BudgetFree(Jbig2Allocator* a, void* p) {
    if (!p) return;
    auto* b = reinterpret_cast<BudgetAllocator*>(a);
    BlockHeader* h = static_cast<BlockHeader*>(p) - 1;
    b->used -= h->size;
    std::free(h);
}

void* BudgetRealloc(Jbig2Allocator* a, void* p, size_t size) {
    if (!p) return BudgetAlloc(a, size);
    auto* b = reinterpret_cast<BudgetAllocator*>(a);
    BlockHeader* h = static_cast<BlockHeader*>(p) - 1;
    size_t old = h->size;
    if (size > old && (size - old > b->budget || b->used + (size - old) > b->budget)) return nullptr;
    auto* nh = static_cast<BlockHeader*>(std::realloc(h, sizeof(BlockHeader) + size));
    if (!nh) return nullptr;
    b->used = b->used - old + size;
    nh->size = size;
    return nh + 1;
}

struct ErrorState {
    std::string fatal;
};

void OnJbig2Error(void* data, const char* msg, Jbig2Severity severity, uint32_t) {
    auto* st = static_cast<ErrorState*>(data);
    if (severity == JBIG2_SEVERITY_FATAL && st->fatal.empty()) st->fatal = msg ? msg : "fatal error";
}

uint32_t Be32(const uint8_t* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}

// The bytes of the bitmap that the first page information segment of
// embedded JBIG2 data declares (0 when none is found before a segment whose
// length is unknown, or when the page's height is left open for striping).
// Read ahead of the decoder, which would allocate the page first.
uint64_t DeclaredPageBytes(const Bytes& d) {
    size_t p = 0;
    while (p + 6 <= d.size()) {
        const uint32_t number = Be32(&d[p]);
        const uint8_t flags = d[p + 4];
        size_t q = p + 5;
        uint32_t referred = d[q] >> 5;
        if (referred == 7) {
            if (q + 4 > d.size()) return 0;
            referred = Be32(&d[q]) & 0x1FFFFFFF;
            q += 4 + (uint64_t(referred) + 8) / 8;
        } else if (referred > 4) {
            return 0;
        } else {
            q += 1;
        }
        const size_t refSize = number <= 256 ? 1 : number <= 65536 ? 2 : 4;
        q += uint64_t(referred) * refSize + ((flags & 0x40) ? 4 : 1);
        if (q + 4 > d.size()) return 0;
        const uint32_t length = Be32(&d[q]);
        q += 4;
        if ((flags & 0x3F) == 48) {
            if (q + 8 > d.size()) return 0;
            const uint32_t w = Be32(&d[q]), h = Be32(&d[q + 4]);
            return h == 0xFFFFFFFF ? 0 : (uint64_t(w) + 7) / 8 * h;
        }
        if (length == 0xFFFFFFFF || length > d.size() - q) return 0;
        p = q + length;
    }
    return 0;
}

class JBIG2Stage : public FilterStage {
public:
    explicit JBIG2Stage(Bytes globals) : globals_(std::move(globals)) {}

protected:
    void DoWrite(const uint8_t* data, size_t size) override { in_.insert(in_.end(), data, data + size); }
    void DoFinish() override {
        // A bilevel page of 256 MiB is some 45000 x 45000 pixels, far past any
        // scanner; a forged page size must not cost more than that.
        const uint64_t pageBudget = std::min<uint64_t>(Limit(), uint64_t(256) << 20);
        // A page whose bitmap could not be output anyway is refused before
        // the decoder allocates it.
        if (DeclaredPageBytes(in_) > pageBudget) throw OutputTooLarge{};
        BudgetAllocator alloc{{BudgetAlloc, BudgetFree, BudgetRealloc}, pageBudget * 2 + (64u << 20), 0};
        ErrorState err;
        Jbig2Allocator* a = &alloc.base;
        Jbig2GlobalCtx* gctx = nullptr;
        if (!globals_.empty()) {
            Jbig2Ctx* g = jbig2_ctx_new(a, JBIG2_OPTIONS_EMBEDDED, nullptr, OnJbig2Error, &err);
            if (!g) Fail(kErrSyntax, "JBIG2Decode: out of memory");
            jbig2_data_in(g, globals_.data(), globals_.size());
            gctx = jbig2_make_global_ctx(g);
        }
        Jbig2Ctx* ctx = jbig2_ctx_new(a, JBIG2_OPTIONS_EMBEDDED, gctx, OnJbig2Error, &err);
        if (!ctx) {
            if (gctx) jbig2_global_ctx_free(gctx);
            Fail(kErrSyntax, "JBIG2Decode: out of memory");
        }
        int rc = jbig2_data_in(ctx, in_.data(), in_.size());
        if (rc >= 0) jbig2_complete_page(ctx);
        Jbig2Image* page = jbig2_page_out(ctx);
        Bytes out;
        if (page) {
            const size_t rowBytes = (size_t(page->width) + 7) / 8;
            out.resize(rowBytes * page->height);
            for (uint32_t y = 0; y < page->height; ++y) {
                const uint8_t* src = page->data + size_t(y) * page->stride;
                uint8_t* dst = out.data() + size_t(y) * rowBytes;
                for (size_t x = 0; x < rowBytes; ++x) dst[x] = static_cast<uint8_t>(~src[x]);
            }
            jbig2_release_page(ctx, page);
        }
        jbig2_ctx_free(ctx);
        if (gctx) jbig2_global_ctx_free(gctx);
        Emit(out.data(), out.size());
        if (!page) {
            Fail(kErrSyntax, "JBIG2Decode: " + (err.fatal.empty() ? std::string("no page in data") : err.fatal));
        }
        if (!err.fatal.empty() || rc < 0) Fail(kErrSyntax, "JBIG2Decode: " + err.fatal);
    }

private:
    Bytes globals_;
    Bytes in_;
};

}  // namespace

std::unique_ptr<FilterStage> MakeJBIG2Stage(const FilterParams& params) {
    return std::make_unique<JBIG2Stage>(params.jbig2Globals);
}

}  // namespace filters::detail
