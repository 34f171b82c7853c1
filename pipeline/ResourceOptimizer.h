// Resource optimisation: the walk over the resources of every page and
// form that counts fonts, images, colour spaces, patterns and shadings,
// recompresses their streams, removes OPI data and alternate images, and
// merges duplicate images and ICC profiles; then every other stream of the
// document is recompressed as plain data.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "pdfcore/CosObj.h"
#include "pipeline/Operations.h"

namespace pipeline {

// What the duplicate search knows of one image XObject (or ICC profile).
struct ImageRecord {
    CosObj image = nullptr;
    ASInt32 width = 0;
    ASInt32 height = 0;
    uint8_t bitsPerComponent = 0;
    std::string colorSpace;  // name, or an array space's family name
    ASInt32 length = 0;      // stored length
    bool imageMask = false;
    bool sMask = false;
    bool mask = false;
    std::string digest;  // MD5 of the decoded data, 32 lower-case hex digits; empty until computed
};

ImageRecord MakeImageRecord(CosObj image);
// "%1%x%2%x%3%-%4%-%5%-%6%-%7%-%8%": width, height, depth, colour space,
// stored length and the three mask flags as 0 or 1.
std::string DuplicateKey(const ImageRecord& record);
// The MD5 of a stream's fully decoded data as 32 lower-case hex digits;
// empty when the data cannot be decoded completely.
std::string DecodedDigest(CosObj stream);

// The per-document map from key to the first records seen with it.
class DuplicateFinder {
public:
    // The earlier object that `record` duplicates (equal key and digest),
    // or null; a record that duplicates nothing is remembered.  A stream
    // that does not decode is never a duplicate of anything.
    CosObj Find(const ImageRecord& record, const std::string& key);

private:
    std::map<std::string, std::vector<ImageRecord>> m_byKey;
};

// Registers the resource step (post-layout).
void RegisterResourceOperations(OperationRegistry& registry);

// The step itself, for tests: walks, recompresses and merges as the
// settings of `ctx` say.
void OptimizeResources(RunContext& ctx);

}  // namespace pipeline
