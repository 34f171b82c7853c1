#include "jbig2/DocumentCoder.h"

#include "jbig2/Segments.h"

namespace jbig2 {

std::vector<uint8_t> DocumentCoder::Add(const Bitmap& page, uint32_t& ticket) {
    ticket = UINT32_MAX;
    std::vector<uint8_t> generic = EncodeGenericPage(page);
    std::optional<PagePlan> plan = PlanPage(page, options_);
    if (!plan || plan->shapes.empty()) return generic;
    PageRecord rec;
    rec.width = plan->width;
    rec.height = plan->height;
    rec.placements = plan->placements;
    rec.residueRegion = ResidueRegionData(*plan);
    rec.lossless = plan->lossless;
    std::vector<const Symbol*> shapes;
    for (const Symbol& s : plan->shapes) shapes.push_back(&s);
    std::vector<uint8_t> symbols =
        ComposePage(rec.width, rec.height, shapes, rec.placements, rec.residueRegion, {}, 0, 0, rec.lossless);
    std::vector<uint8_t> best = symbols.size() < generic.size() ? std::move(symbols) : std::move(generic);
    rec.alone = best.size();
    for (Symbol& s : plan->shapes) {
        auto [it, added] = index_.try_emplace(ShapeKey(s.w, s.h, s.bits), uint32_t(shapes_.size()));
        if (added) shapes_.push_back(std::move(s));
        rec.shapes.push_back(it->second);
    }
    ticket = uint32_t(pages_.size());
    pages_.push_back(std::move(rec));
    return best;
}

void DocumentCoder::Drop(uint32_t ticket) {
    if (ticket >= pages_.size()) return;
    pages_[ticket] = PageRecord{};
    pages_[ticket].live = false;
}

std::optional<DocumentCoder::Shared> DocumentCoder::Share() const {
    // A shape goes to the shared dictionary when two pages or more draw it.
    std::vector<uint32_t> pagesWith(shapes_.size(), 0);
    for (const PageRecord& r : pages_)
        if (r.live)
            for (uint32_t s : r.shapes) ++pagesWith[s];
    std::vector<const Symbol*> shared;
    std::vector<uint32_t> sharedIndex(shapes_.size(), UINT32_MAX);
    for (size_t s = 0; s < shapes_.size(); ++s)
        if (pagesWith[s] >= 2) {
            sharedIndex[s] = uint32_t(shared.size());
            shared.push_back(&shapes_[s]);
        }
    if (shared.empty()) return std::nullopt;
    Shared out;
    std::vector<uint32_t> position;
    SegmentWriter g(0, 0);
    const uint32_t segment = g.Segment(kSegSymbolDictionary, SymbolDictionaryData(shared, position));
    out.globals = g.Take();
    out.bytesAfter = out.globals.size();
    const uint32_t count = uint32_t(shared.size());
    for (size_t t = 0; t < pages_.size(); ++t) {
        const PageRecord& r = pages_[t];
        if (!r.live) continue;
        std::vector<const Symbol*> shapes;
        std::vector<uint32_t> global;
        bool sharesAny = false;
        for (uint32_t s : r.shapes) {
            shapes.push_back(&shapes_[s]);
            global.push_back(sharedIndex[s] == UINT32_MAX ? UINT32_MAX : position[sharedIndex[s]]);
            sharesAny = sharesAny || sharedIndex[s] != UINT32_MAX;
        }
        if (!sharesAny) continue;  // it keeps its own coding
        std::vector<uint8_t> bytes =
            ComposePage(r.width, r.height, shapes, r.placements, r.residueRegion, global, segment, count, r.lossless);
        out.bytesBefore += r.alone;
        out.bytesAfter += bytes.size();
        out.pages.emplace_back(uint32_t(t), std::move(bytes));
    }
    if (out.bytesAfter >= out.bytesBefore) return std::nullopt;
    return out;
}

}  // namespace jbig2
