// Palettisation and quantisation over the colour and gray images of a set
// of files: bytes as stored, bytes after, and the PSNR of the colours the
// result draws against the colours the original draws (both read back
// through their own colour tables and Decode arrays).
//
//   palette_bench LIST    LIST: one "PATH<TAB>PASSWORD" line per file
//
// Each file is opened twice: once for palettisation alone, once for
// palettisation and quantisation (256 colours, the 35 dB bound).  Prints a
// table, one row per file with images and a total row.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "base/ASMem.h"
#include "filters/Filters.h"
#include "images/ImageReduce.h"
#include "images/Palette.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/PDDoc.h"

namespace {

ASAtom A(const char* s) { return ASAtomFromString(s); }

// The colours an image draws, 8 bits per component of its (base) colour
// space, or nullopt for what this reader does not handle.
std::optional<images::Raster> DrawnColours(CosObj img) {
    const int w = CosDictGetInt(img, A("Width"), 0), h = CosDictGetInt(img, A("Height"), 0);
    int bpc = CosDictGetInt(img, A("BitsPerComponent"), 8);
    CosObj cs = CosDictGet(img, A("ColorSpace"));
    std::string table;
    int comps = 0;
    auto components = [](CosObj s) {
        if (CosObjGetType(s) == kCosArray) {
            const std::string f = ASAtomGetString(CosNameValue(CosArrayGet(s, 0)));
            if (f == "ICCBased") return int(CosDictGetInt(CosArrayGet(s, 1), A("N"), 0));
            if (f == "CalRGB" || f == "Lab") return 3;
            if (f == "CalGray" || f == "Separation") return 1;
            if (f == "DeviceN") return int(CosArrayLength(CosArrayGet(s, 1)));
            return 0;
        }
        const std::string f = ASAtomGetString(CosNameValue(s));
        return f == "DeviceRGB" ? 3 : f == "DeviceGray" ? 1 : f == "DeviceCMYK" ? 4 : 0;
    };
    const bool indexed = CosObjGetType(cs) == kCosArray && CosNameValue(CosArrayGet(cs, 0)) == A("Indexed");
    if (indexed) {
        comps = components(CosArrayGet(cs, 1));
        CosObj lookup = CosArrayGet(cs, 3);
        if (CosObjGetType(lookup) == kCosStream) {
            auto b = CosStreamDecodedData(lookup);
            table.assign(b.begin(), b.end());
        } else {
            size_t n = 0;
            const char* p = CosStringValue(lookup, &n);
            table.assign(p, n);
        }
    } else {
        comps = components(cs);
    }
    if (comps < 1 || comps > 4 || w <= 0 || h <= 0) return std::nullopt;
    std::vector<uint8_t> data;
    const int samples = indexed ? 1 : comps;
    CosObj filter = CosDictGet(img, A("Filter"));
    if (CosObjGetType(filter) == kCosArray) filter = CosArrayGet(filter, CosArrayLength(filter) - 1);
    if (CosObjGetType(filter) == kCosName && CosNameValue(filter) == A("DCTDecode")) {
        CosDecodeOptions o;
        o.keepImageCodecs = true;
        filters::DCTImage d = filters::DecodeDCT(CosStreamDecodedData(img, o));
        data = std::move(d.samples);
        bpc = 8;
    } else {
        data = CosStreamDecodedData(img);
    }
    const size_t rowBytes = (size_t(w) * size_t(samples) * size_t(bpc) + 7) / 8;
    if (data.size() < rowBytes * size_t(h)) return std::nullopt;
    std::vector<bool> inverted(size_t(samples), false);
    CosObj decode = CosDictGet(img, A("Decode"));
    for (int c = 0; c < samples && CosObjGetType(decode) == kCosArray; ++c)
        inverted[size_t(c)] = CosFixedValue(CosArrayGet(decode, 2 * c)) > CosFixedValue(CosArrayGet(decode, 2 * c + 1));
    images::Raster r;
    r.width = w;
    r.height = h;
    r.colors = comps;
    r.data.reserve(size_t(w) * size_t(h) * size_t(comps));
    const unsigned maxv = bpc == 16 ? 65535 : (1u << bpc) - 1;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < samples; ++c) {
                const size_t i = size_t(x) * size_t(samples) + size_t(c);
                const uint8_t* row = data.data() + size_t(y) * rowBytes;
                unsigned v;
                if (bpc == 16) v = (unsigned(row[2 * i]) << 8) | row[2 * i + 1];
                else if (bpc == 8) v = row[i];
                else v = (row[i * size_t(bpc) / 8] >> (8 - bpc - i * size_t(bpc) % 8)) & maxv;
                if (indexed) {
                    const size_t e = std::min<size_t>(v, table.size() / size_t(comps) - 1);
                    for (int k = 0; k < comps; ++k) r.data.push_back(uint8_t(table[e * size_t(comps) + size_t(k)]));
                } else {
                    unsigned s = (v * 255 + maxv / 2) / maxv;
                    if (inverted[size_t(c)]) s = 255 - s;
                    r.data.push_back(uint8_t(s));
                }
            }
    return r;
}

struct Tally {
    int images = 0;
    size_t stored = 0;
    int changed = 0;
    size_t before = 0, after = 0;
    double minPsnr = std::numeric_limits<double>::infinity();
    double psnrSum = 0;  // over the changed images with a finite PSNR
    int finite = 0;
    int mismatched = 0;  // images whose result could not be read back
    double seconds = 0;
};

void Run(const std::string& path, const std::string& pw, bool quantize, Tally& t) {
    PDDoc pd = PDDocOpen(path, pw);
    CosDoc cos = PDDocGetCosDoc(pd);
    images::ColourReductionParams p;
    p.palettize = true;
    p.quantize = quantize;
    // Soft masks are images too, but never drawn on their own.
    std::vector<bool> softMask(size_t(CosDocGetObjTableSize(cos)) + 1, false);
    for (ASInt32 i = 1; i < CosDocGetObjTableSize(cos); ++i) {
        try {
            CosObj o = CosDocGetObjByID(cos, i);
            if (CosObjGetType(o) != kCosStream) continue;
            CosObj sm = CosDictGet(o, A("SMask"));
            if (CosObjGetType(sm) == kCosStream && CosObjIsIndirect(sm) && size_t(CosObjGetID(sm)) < softMask.size())
                softMask[size_t(CosObjGetID(sm))] = true;
        } catch (const CVellumError&) {
        }
    }
    for (ASInt32 i = 1; i < CosDocGetObjTableSize(cos); ++i) {
        try {
            if (softMask[size_t(i)]) continue;
            CosObj o = CosDocGetObjByID(cos, i);
            if (CosObjGetType(o) != kCosStream || CosDictGetName(o, A("Subtype")) != A("Image")) continue;
            if (CosDictGetBool(o, A("ImageMask"), false)) continue;
            if (images::ClassifyImage(o) == images::ImageClass::Mono) continue;
            ++t.images;
            const size_t stored = CosStreamEncodedLength(o);
            t.stored += stored;
            std::optional<images::Raster> before;
            try {
                before = DrawnColours(o);
            } catch (const CVellumError&) {
            }
            auto start = std::chrono::steady_clock::now();
            images::ColourResult r = images::ReduceColours(o, p);
            t.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            if (r.outcome != (quantize ? images::ColourOutcome::Quantized : images::ColourOutcome::Palettized)) {
                continue;
            }
            ++t.changed;
            t.before += r.bytesBefore;
            t.after += r.bytesAfter;
            std::optional<images::Raster> after;
            try {
                after = DrawnColours(o);
            } catch (const CVellumError&) {
            }
            if (!before || !after || before->data.size() != after->data.size()) {
                ++t.mismatched;
                continue;
            }
            const double db = images::Psnr(*before, *after);
            t.minPsnr = std::min(t.minPsnr, db);
            if (std::isfinite(db)) {
                t.psnrSum += db;
                ++t.finite;
            }
        } catch (const CVellumError&) {
        }
    }
    PDDocClose(pd);
}

std::string Db(double v) {
    if (std::isinf(v)) return "exact";
    char b[32];
    std::snprintf(b, sizeof b, "%.1f", v);
    return b;
}

void Row(const char* name, const Tally& pal, const Tally& q) {
    std::printf("%-34s %5d %11zu | %4d %10zu %10zu %6s %3s | %4d %10zu %10zu %6s %6s | %6.2f %6.2f\n", name,
                pal.images, pal.stored, pal.changed, pal.before, pal.after, Db(pal.minPsnr).c_str(),
                pal.mismatched ? "!" : "", q.changed, q.before, q.after, Db(q.minPsnr).c_str(),
                q.finite ? Db(q.psnrSum / q.finite).c_str() : "-", pal.seconds, q.seconds);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: palette_bench LIST\n");
        return 2;
    }
    VellumDataRec rec;
    VellumInit(&rec);
    CosCoreInit();
    std::printf("%-34s %5s %11s | %4s %10s %10s %6s %3s | %4s %10s %10s %6s %6s | %6s %6s\n", "file", "imgs",
                "stored", "pal", "before", "after", "psnr", "", "quan", "before", "after", "min", "mean", "t_pal",
                "t_q");
    Tally pt, qt;
    std::ifstream list(argv[1]);
    std::string line;
    while (std::getline(list, line)) {
        const size_t tab = line.find('\t');
        const std::string path = line.substr(0, tab);
        const std::string pw = tab == std::string::npos ? "" : line.substr(tab + 1);
        Tally pal, q;
        try {
            Run(path, pw, false, pal);
            Run(path, pw, true, q);
        } catch (const CVellumError& e) {
            std::fprintf(stderr, "palette_bench: %s: %s\n", path.c_str(), e.what());
            continue;
        }
        if (pal.images == 0) continue;
        const std::string name = path.substr(path.find_last_of('/') + 1);
        Row(name.c_str(), pal, q);
        for (auto [total, one] : {std::pair<Tally*, Tally*>{&pt, &pal}, {&qt, &q}}) {
            total->images += one->images;
            total->stored += one->stored;
            total->changed += one->changed;
            total->before += one->before;
            total->after += one->after;
            total->minPsnr = std::min(total->minPsnr, one->minPsnr);
            total->psnrSum += one->psnrSum;
            total->finite += one->finite;
            total->mismatched += one->mismatched;
            total->seconds += one->seconds;
        }
    }
    Row("TOTAL", pt, qt);
    VellumTerm();
    return 0;
}
