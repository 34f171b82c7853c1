// The stream filter layer: decoding through a chain of standard PDF filters
// and encoding with Flate.  It knows nothing of the object model; the core
// turns a stream's Filter/DecodeParms into a FilterChain and calls in here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace filters {

using Bytes = std::vector<uint8_t>;
using ByteSpan = std::span<const uint8_t>;

// The decode parameters of one filter, taken from its DecodeParms
// dictionary: numbers and booleans by key (booleans as 0/1), plus the
// decoded bytes of JBIG2Globals when present.
struct FilterParams {
    std::map<std::string, double> values;
    Bytes jbig2Globals;
    bool Has(const std::string& key) const { return values.count(key) != 0; }
    double Get(const std::string& key, double dflt) const {
        auto it = values.find(key);
        return it == values.end() ? dflt : it->second;
    }
};

struct FilterStep {
    std::string name;  // full or abbreviated filter name, without the slash
    FilterParams params;
};
using FilterChain = std::vector<FilterStep>;

struct DecodeOptions {
    // Stop with an error once the decoded output would exceed this many bytes.
    uint64_t maxOutput = uint64_t(1) << 30;
    // Strict: a corrupt stream raises instead of yielding what was decoded.
    bool strict = false;
    // Leave image codecs (DCTDecode, JPXDecode, JBIG2Decode, CCITTFaxDecode)
    // undecoded: decoding stops before the first of them.
    bool keepImageCodecs = false;
};

enum class DecodeStatus {
    Ok,           // every filter decoded completely
    Corrupt,      // a filter met damaged data; `data` holds what decoded before it
    Undecodable,  // a filter that is passed through (JPXDecode); data is still encoded
    Partial,      // decoding stopped before an image codec on request
};

struct DecodeResult {
    Bytes data;
    DecodeStatus status = DecodeStatus::Ok;
    size_t filtersApplied = 0;  // how many steps of the chain were decoded
    std::string message;        // what went wrong, for Corrupt
};

// Decodes `in` through the chain.  Unknown filter names raise "a stream
// specifies an unknown filter"; exceeding maxOutput raises "operation or data
// is too complex"; a corrupt stream gives a warning through the warning sink
// and status Corrupt (or raises the filter's error when strict).
DecodeResult DecodeChain(ByteSpan in, const FilterChain& chain, const DecodeOptions& opts = {});

// Canonical full name of a filter ("AHx" -> "ASCIIHexDecode"); empty when unknown.
std::string CanonicalFilterName(const std::string& name);
// True for the image codecs that decoding may be asked to keep.
bool IsImageCodec(const std::string& canonicalName);

// Flate encoding into a zlib-format stream at a level from 0 (stored, no
// compression) through 9 (zlib's strongest) to 12 (slowest, smallest); a
// level outside 0-12 means 6.  FlateEncodePNG first runs the data through a
// PNG predictor chosen per row (Predictor 15) with the given
// Colors/BitsPerComponent/Columns.
constexpr int kFlateMinLevel = 0;
constexpr int kFlateMaxLevel = 12;
constexpr int kFlateDefaultLevel = 6;
Bytes FlateEncode(ByteSpan in, int level);
Bytes FlateEncodePNG(ByteSpan in, int level, int colors, int bitsPerComponent, int columns);

// Run-length and LZW encoding (LZW with EarlyChange 1, the default a
// reader assumes), and the PNG predictor alone: each row gets the filter
// type with the smallest sum of absolute differences, as Predictor 15.
Bytes RunLengthEncode(ByteSpan in);
Bytes LZWEncode(ByteSpan in);
Bytes PNGPredictEncode(ByteSpan in, int colors, int bitsPerComponent, int columns);

// Push interface: bytes go in through Write in chunks of any size, decoded
// bytes leave through the callback as they become available, so a caller
// that streams never holds the whole output.  The limits and the error
// rules are those of DecodeChain (which is built on this).  Construction
// raises for an unknown filter name; Write and Finish raise for a stream too
// large and, when strict, for damaged data.
using OutputCallback = std::function<void(ByteSpan)>;
class Decoder {
public:
    Decoder(const FilterChain& chain, const DecodeOptions& opts, OutputCallback out);
    ~Decoder();
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    void Write(ByteSpan chunk);
    void Finish();

    DecodeStatus Status() const;
    size_t FiltersApplied() const;
    const std::string& Message() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Single-filter shorthands over the chain (the filter's DecodeParms in
// `params`); damaged data follows the non-strict rule: warning, partial data.
Bytes ASCIIHexDecode(ByteSpan in);
Bytes ASCII85Decode(ByteSpan in);
Bytes RunLengthDecode(ByteSpan in);
Bytes LZWDecode(ByteSpan in, const FilterParams& params = {});
Bytes FlateDecode(ByteSpan in, const FilterParams& params = {});
Bytes CCITTFaxDecode(ByteSpan in, const FilterParams& params);
Bytes JBIG2Decode(ByteSpan in, const FilterParams& params = {});

// JPEG to samples, for the image work: interleaved 8-bit samples, rows top
// to bottom.  Colour conversion follows the JPEG's APP14 marker when there
// is one, else the ColorTransform parameter (default: YCbCr for three
// components, none for four).  Samples are returned as stored: an APP14
// CMYK JPEG keeps its inverted values (`invertedCMYK` tells the caller),
// which is what a PDF reader draws unless a Decode array says otherwise.
// Damaged data raises "error in JPEG data filter" when strict, else gives a
// warning and the rows decoded (the rest white/zero).
struct DCTImage {
    int width = 0;
    int height = 0;
    int components = 0;
    bool app14Marker = false;
    int app14Transform = -1;  // 0 none, 1 YCbCr, 2 YCCK; -1 without marker
    bool invertedCMYK = false;
    bool corrupt = false;
    Bytes samples;
};
DCTImage DecodeDCT(ByteSpan in, const FilterParams& params = {}, const DecodeOptions& opts = {});

// The resource step's two filter warnings, sent to the warning sink: an
// element of a Filter array that is not a name gives "Bad filter name"; a
// Filter entry that is neither a name nor an array gives "Bad 'Filter'
// attribute in stream".
void WarnBadFilterName();
void WarnBadFilterAttribute();

// Where decoders send their warnings ("Bad filter name", corrupt data...).
// The front end routes them to the log's Warning channel.
using WarningSink = std::function<void(const std::string&)>;
void SetWarningSink(WarningSink sink);
// The sink in place, so that a step can put its own in for a while and
// restore it.
WarningSink GetWarningSink();
void Warn(const std::string& text);

}  // namespace filters
