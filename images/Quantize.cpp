#include "images/Quantize.h"

#include <libimagequant.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <unordered_set>

namespace images {
namespace {

// The quantiser forgets to free its row buffers when it works on a large
// image a row at a time (one buffer per pass over the image, about 32 bytes
// per column), so a batch of large photographs would leak without bound.
// It takes its allocator from the attributes: every block it asks for is
// recorded, and those still held when the call has destroyed everything are
// freed then.  The quantiser runs worker threads, hence the lock.
class LiqBlocks {
public:
    LiqBlocks() { s_current = this; }
    ~LiqBlocks() {
        for (void* p : m_live) std::free(p);
        s_current = nullptr;
    }
    LiqBlocks(const LiqBlocks&) = delete;
    LiqBlocks& operator=(const LiqBlocks&) = delete;

    static void* Allocate(size_t n) {
        void* p = std::malloc(n);
        if (p) {
            std::lock_guard<std::mutex> lock(s_current->m_lock);
            s_current->m_live.insert(p);
        }
        return p;
    }
    static void Free(void* p) {
        if (!p) return;
        {
            std::lock_guard<std::mutex> lock(s_current->m_lock);
            s_current->m_live.erase(p);
        }
        std::free(p);
    }

private:
    static inline LiqBlocks* s_current = nullptr;
    std::mutex m_lock;
    std::unordered_set<void*> m_live;
};

struct LiqDeleter {
    void operator()(liq_attr* a) const { liq_attr_destroy(a); }
    void operator()(liq_image* i) const { liq_image_destroy(i); }
    void operator()(liq_result* r) const { liq_result_destroy(r); }
};

}  // namespace

std::optional<IndexedRaster> QuantizeRGB(const Raster& rgb, int maxColors, std::string* why, bool quick) {
    if (rgb.colors != 3 || rgb.alpha || rgb.bits != 8 || rgb.width <= 0 || rgb.height <= 0 ||
        rgb.data.size() < rgb.ByteSize()) {
        *why = "quantisation needs 8-bit RGB samples";
        return std::nullopt;
    }
    const size_t n = size_t(rgb.width) * size_t(rgb.height);
    // The quantiser works on RGBA; every pixel is opaque.
    std::vector<uint8_t> rgba(n * 4);
    for (size_t i = 0; i < n; ++i) {
        rgba[4 * i] = rgb.data[3 * i];
        rgba[4 * i + 1] = rgb.data[3 * i + 1];
        rgba[4 * i + 2] = rgb.data[3 * i + 2];
        rgba[4 * i + 3] = 255;
    }
    // Declared first, so that it outlives every quantiser object below.
    LiqBlocks blocks;
    std::unique_ptr<liq_attr, LiqDeleter> attr(liq_attr_create_with_allocator(LiqBlocks::Allocate, LiqBlocks::Free));
    if (!attr) {
        *why = "quantiser could not start";
        return std::nullopt;
    }
    liq_set_max_colors(attr.get(), std::clamp(maxColors, 2, 256));
    liq_set_speed(attr.get(), quick ? 10 : 4);
    // 0 would let the quantiser give up on its own; the caller measures the
    // result against its own bound instead.
    liq_set_quality(attr.get(), 0, 100);
    std::unique_ptr<liq_image, LiqDeleter> image(
        liq_image_create_rgba(attr.get(), rgba.data(), rgb.width, rgb.height, 0));
    if (!image) {
        *why = "quantiser refused the image";
        return std::nullopt;
    }
    liq_result* raw = nullptr;
    if (liq_image_quantize(image.get(), attr.get(), &raw) != LIQ_OK || !raw) {
        *why = "quantisation failed";
        return std::nullopt;
    }
    std::unique_ptr<liq_result, LiqDeleter> result(raw);
    liq_set_dithering_level(result.get(), 1.0f);
    IndexedRaster out;
    out.width = rgb.width;
    out.height = rgb.height;
    out.colors = 3;
    out.indices.resize(n);
    if (liq_write_remapped_image(result.get(), image.get(), out.indices.data(), out.indices.size()) != LIQ_OK) {
        *why = "quantiser could not remap the image";
        return std::nullopt;
    }
    const liq_palette* pal = liq_get_palette(result.get());
    out.entries = int(pal->count);
    out.table.resize(size_t(out.entries) * 3);
    for (int i = 0; i < out.entries; ++i) {
        out.table[3 * size_t(i)] = pal->entries[i].r;
        out.table[3 * size_t(i) + 1] = pal->entries[i].g;
        out.table[3 * size_t(i) + 2] = pal->entries[i].b;
    }
    return out;
}

}  // namespace images
