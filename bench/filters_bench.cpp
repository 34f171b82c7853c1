// Throughput of the filter layer against the libraries used directly.
//
//   filters_bench flate FILE...        Flate streams: decode and encode,
//                                      ours (libdeflate) and zlib's, MB/s
//                                      and ratios; bytes and time at level 9
//   filters_bench g4 RAW COLS ROWS TIFF   CCITT G4 data: decode speed, and
//                                      the same data wrapped as a TIFF file
//                                      for libtiff's tools
#include <libdeflate.h>
#include <tiffio.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "filters/Filters.h"

using filters::Bytes;
using Clock = std::chrono::steady_clock;

namespace {

Bytes ReadFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

// Seconds per run of `fn`: the best of seven rounds of at least 0.15 s
// each, so other work on a shared machine disturbs the figure less.
template <class F>
double Time(F&& fn) {
    fn();  // warm-up
    double best = 1e30;
    for (int round = 0; round < 7; ++round) {
        int runs = 0;
        auto start = Clock::now();
        double elapsed = 0;
        do {
            fn();
            ++runs;
            elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        } while (elapsed < 0.15);
        best = std::min(best, elapsed / runs);
    }
    return best;
}

// zlib used directly the way a careful caller would: inflate in 64 KB
// slices appended to a fresh buffer sized with the same guess (four times
// the input) that DecodeChain makes, since both hand back new memory.
Bytes ZlibInflate(const Bytes& in) {
    Bytes out;
    out.reserve(in.size() * 4);
    z_stream zs{};
    inflateInit(&zs);
    zs.next_in = const_cast<Bytef*>(in.data());
    zs.avail_in = static_cast<uInt>(in.size());
    uint8_t buf[65536];
    int rc;
    do {
        zs.next_out = buf;
        zs.avail_out = sizeof buf;
        rc = inflate(&zs, Z_NO_FLUSH);
        out.insert(out.end(), buf, buf + (sizeof buf - zs.avail_out));
    } while (rc == Z_OK);
    inflateEnd(&zs);
    return out;
}

Bytes ZlibDeflate(const Bytes& in, int level) {
    uLongf n = compressBound(static_cast<uLong>(in.size()));
    Bytes out(n);
    compress2(out.data(), &n, in.data(), static_cast<uLong>(in.size()), level);
    out.resize(n);
    return out;
}

int BenchFlate(const std::vector<std::string>& files) {
    std::vector<Bytes> enc, plain;
    size_t plainBytes = 0;
    for (const auto& f : files) {
        Bytes e = ReadFile(f);
        Bytes p = ZlibInflate(e);
        if (p.empty()) continue;
        plainBytes += p.size();
        enc.push_back(std::move(e));
        plain.push_back(std::move(p));
    }
    if (enc.empty()) {
        std::cerr << "no Flate streams\n";
        return 1;
    }
    double mb = double(plainBytes) / 1e6;
    Bytes scratch;
    double zd = Time([&] {
        for (const auto& e : enc) scratch = ZlibInflate(e);
    });
    double od = Time([&] {
        for (const auto& e : enc) scratch = filters::FlateDecode(e);
    });
    double ze = Time([&] {
        for (const auto& p : plain) scratch = ZlibDeflate(p, 6);
    });
    double oe = Time([&] {
        for (const auto& p : plain) scratch = filters::FlateEncode(p, 6);
    });
    // Level 9 side by side: the level both libraries share, the pipeline's
    // default; bytes and time over the same streams.
    size_t zBytes = 0, oBytes = 0, o12Bytes = 0;
    for (const auto& p : plain) {
        zBytes += ZlibDeflate(p, 9).size();
        oBytes += filters::FlateEncode(p, 9).size();
        o12Bytes += filters::FlateEncode(p, 12).size();
    }
    double z9 = Time([&] {
        for (const auto& p : plain) scratch = ZlibDeflate(p, 9);
    });
    double o9 = Time([&] {
        for (const auto& p : plain) scratch = filters::FlateEncode(p, 9);
    });
    double o12 = Time([&] {
        for (const auto& p : plain) scratch = filters::FlateEncode(p, 12);
    });
    // libdeflate's decoder at its best: told each stream's exact decoded
    // size, which a PDF reader does not know in advance.
    libdeflate_decompressor* dec = libdeflate_alloc_decompressor();
    double ld = Time([&] {
        for (size_t i = 0; i < enc.size(); ++i) {
            scratch.resize(plain[i].size());
            size_t got = 0;
            libdeflate_zlib_decompress(dec, enc[i].data(), enc[i].size(), scratch.data(), scratch.size(), &got);
        }
    });
    libdeflate_free_decompressor(dec);
    std::printf("flate: %zu streams, %.1f MB decoded\n", enc.size(), mb);
    std::printf("flate decode, libdeflate told the sizes: %.1f MB/s, %.3f of zlib's time\n", mb / ld, ld / zd);
    std::printf("flate level 9 bytes: libdeflate %zu, zlib %zu, ratio %.4f\n", oBytes, zBytes,
                double(oBytes) / double(zBytes));
    std::printf("flate level 9 time: libdeflate %.3f s, zlib %.3f s, ratio %.3f\n", o9, z9, o9 / z9);
    std::printf("flate level 12 (libdeflate): %zu bytes (%.4f of zlib 9), %.3f s (%.3f of zlib 9)\n", o12Bytes,
                double(o12Bytes) / double(zBytes), o12, o12 / z9);
    std::printf("flate decode: ours %.1f MB/s, zlib %.1f MB/s, ratio %.3f\n", mb / od, mb / zd, zd / od);
    std::printf("flate encode (level 6): ours %.1f MB/s, zlib %.1f MB/s, ratio %.3f\n", mb / oe, mb / ze, ze / oe);
    return 0;
}

int BenchG4(const std::string& rawPath, int cols, int rows, const std::string& tiffPath) {
    Bytes raw = ReadFile(rawPath);
    filters::FilterParams p;
    p.values = {{"K", -1}, {"Columns", cols}, {"Rows", rows}};
    Bytes out;
    double t = Time([&] { out = filters::CCITTFaxDecode(raw, p); });
    std::printf("g4 decode: %d x %d, %zu bytes in, %zu out, %.3f ms per image\n", cols, rows, raw.size(), out.size(),
                t * 1e3);
    TIFF* tif = TIFFOpen(tiffPath.c_str(), "w");
    if (!tif) return 1;
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, uint32_t(cols));
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, uint32_t(rows));
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, uint32_t(rows));
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    TIFFWriteRawStrip(tif, 0, raw.data(), static_cast<tmsize_t>(raw.size()));
    TIFFClose(tif);
    // libtiff's decoder in-process too, which leaves out tiffcp's start-up
    // and file writing: the stricter comparison.
    tif = TIFFOpen(tiffPath.c_str(), "r");
    if (!tif) return 1;
    Bytes strip(static_cast<size_t>(TIFFStripSize(tif)));
    double lt = Time([&] { TIFFReadEncodedStrip(tif, 0, strip.data(), static_cast<tmsize_t>(strip.size())); });
    TIFFClose(tif);
    std::printf("g4 libtiff in-process: %.3f ms per image, ratio (libtiff time / ours) %.2f\n", lt * 1e3, lt / t);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    // "flate @LIST" reads the file names from LIST, one a line, so that one
    // run covers more streams than a command line holds.
    if (args.size() == 2 && args[0] == "flate" && args[1].size() > 1 && args[1][0] == '@') {
        std::ifstream list(args[1].substr(1));
        std::vector<std::string> files;
        for (std::string line; std::getline(list, line);)
            if (!line.empty()) files.push_back(line);
        return BenchFlate(files);
    }
    if (args.size() >= 2 && args[0] == "flate") return BenchFlate({args.begin() + 1, args.end()});
    if (args.size() == 5 && args[0] == "g4") return BenchG4(args[1], std::atoi(args[2].c_str()), std::atoi(args[3].c_str()), args[4]);
    std::cerr << "usage: filters_bench flate FILE... | filters_bench g4 RAW COLS ROWS OUT.tif\n";
    return 2;
}
