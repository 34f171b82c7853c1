// The stream filter layer: decoding through a chain of standard PDF filters
// and encoding with Flate.  It knows nothing of the object model; the core
// turns a stream's Filter/DecodeParms into a FilterChain and calls in here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
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

// Flate encoding at a zlib level (0-9).  With `predictorColumns` > 0 the
// data is first run through a PNG predictor chosen per row (Predictor 15)
// with the given Colors/BitsPerComponent/Columns.
Bytes FlateEncode(ByteSpan in, int level);
Bytes FlateEncodePNG(ByteSpan in, int level, int colors, int bitsPerComponent, int columns);

// Where decoders send their warnings ("Bad filter name", corrupt data...).
// The front end routes them to the log's Warning channel.
using WarningSink = std::function<void(const std::string&)>;
void SetWarningSink(WarningSink sink);
void Warn(const std::string& text);

}  // namespace filters
