// Bilevel encoders on PBM bitmaps: our JBIG2 generic-region coder, our
// JBIG2 symbol coder (each page on its own, no globals) and our CCITT G4
// path (libtiff in memory), timed per file.  For each bitmap it also writes
// the JBIG2 streams (OUTDIR/NAME.jb2 and NAME.sym.jb2, embedded form) and an
// uncompressed TIFF (OUTDIR/NAME.tif) for other tools to work on.
//
//   mono_bench OUTDIR FILE.pbm...
// Prints: name width height jbig2_bytes g4_bytes jbig2_ms g4_ms symbol_bytes symbol_ms lossy_bytes
// and a last line "shared PAGES BEFORE AFTER": the bytes of the pages'
// symbol coding alone and with one JBIG2Globals dictionary for all of them
// (dictionary included; BEFORE = AFTER when sharing does not pay).
#include <tiffio.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "images/MemoryTiff.h"
#include "jbig2/DocumentCoder.h"
#include "jbig2/Segments.h"
#include "jbig2/SymbolPage.h"

namespace {

struct Pbm {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> rows;
};

bool ReadPbm(const std::string& path, Pbm* out) {
    std::ifstream f(path, std::ios::binary);
    std::vector<uint8_t> data((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    size_t pos = 0;
    auto token = [&]() {
        std::string t;
        while (pos < data.size()) {
            if (data[pos] == '#') {
                while (pos < data.size() && data[pos] != '\n') ++pos;
            } else if (isspace(data[pos])) {
                ++pos;
            } else {
                break;
            }
        }
        while (pos < data.size() && !isspace(data[pos])) t += char(data[pos++]);
        return t;
    };
    if (token() != "P4") return false;
    out->width = uint32_t(std::stoul(token()));
    out->height = uint32_t(std::stoul(token()));
    ++pos;
    const size_t need = (size_t(out->width) + 7) / 8 * out->height;
    if (out->width == 0 || out->height == 0 || data.size() < pos + need) return false;
    out->rows.assign(data.begin() + long(pos), data.begin() + long(pos + need));
    return true;
}

void WriteTiff(const std::string& path, const Pbm& p) {
    TIFF* t = TIFFOpen(path.c_str(), "w");
    if (!t) return;
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, p.width);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, p.height);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, p.height);
    const size_t stride = (size_t(p.width) + 7) / 8;
    std::vector<uint8_t> row(stride);
    for (uint32_t y = 0; y < p.height; ++y) {
        std::copy_n(p.rows.begin() + long(y * stride), stride, row.begin());
        TIFFWriteScanline(t, row.data(), y, 0);
    }
    TIFFClose(t);
}

double Ms(std::chrono::steady_clock::time_point a, std::chrono::steady_clock::time_point b) {
    return std::chrono::duration<double, std::milli>(b - a).count();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: mono_bench OUTDIR FILE.pbm...\n");
        return 2;
    }
    const std::string outDir = argv[1];
    jbig2::DocumentCoder document;
    size_t alone = 0, pages = 0;
    for (int i = 2; i < argc; ++i) {
        Pbm p;
        if (!ReadPbm(argv[i], &p)) {
            std::fprintf(stderr, "skipped %s: not a P4 bitmap\n", argv[i]);
            continue;
        }
        std::string name = argv[i];
        name = name.substr(name.find_last_of('/') + 1);
        name = name.substr(0, name.find_last_of('.'));
        const size_t stride = (size_t(p.width) + 7) / 8;
        const auto t0 = std::chrono::steady_clock::now();
        const std::vector<uint8_t> jb = jbig2::EncodeGenericPage({p.width, p.height, stride, p.rows});
        const auto t1 = std::chrono::steady_clock::now();
        const std::vector<uint8_t> g4 = images::EncodeG4(p.rows, p.width, p.height);
        const auto t2 = std::chrono::steady_clock::now();
        const std::vector<uint8_t> sym = jbig2::EncodePage({p.width, p.height, stride, p.rows});
        const auto t3 = std::chrono::steady_clock::now();
        jbig2::SymbolOptions lossy;
        lossy.lossy = true;
        const std::vector<uint8_t> loose = jbig2::EncodePage({p.width, p.height, stride, p.rows}, lossy);
        std::ofstream(outDir + "/" + name + ".lossy.jb2", std::ios::binary)
            .write(reinterpret_cast<const char*>(loose.data()), std::streamsize(loose.size()));
        uint32_t ticket;
        alone += document.Add({p.width, p.height, stride, p.rows}, ticket).size();
        ++pages;
        std::ofstream(outDir + "/" + name + ".jb2", std::ios::binary)
            .write(reinterpret_cast<const char*>(jb.data()), std::streamsize(jb.size()));
        std::ofstream(outDir + "/" + name + ".sym.jb2", std::ios::binary)
            .write(reinterpret_cast<const char*>(sym.data()), std::streamsize(sym.size()));
        WriteTiff(outDir + "/" + name + ".tif", p);
        std::printf("%s %u %u %zu %zu %.3f %.3f %zu %.3f %zu\n", name.c_str(), p.width, p.height, jb.size(), g4.size(),
                    Ms(t0, t1), Ms(t1, t2), sym.size(), Ms(t2, t3), loose.size());
    }
    const std::optional<jbig2::DocumentCoder::Shared> shared = document.Share();
    // Pages left out of the sharing keep their own coding.
    const size_t after = shared ? alone - shared->bytesBefore + shared->bytesAfter : alone;
    std::printf("shared %zu %zu %zu\n", pages, alone, after);
    return 0;
}
