// Rewriting the content that resources carry: form XObjects, tiling
// patterns, Type 3 glyph procedures and annotation appearances.  Their
// content goes through the same reader and writer as page content (compact
// form, comments and redundant white space gone) and is stored Flate-
// compressed, but only when the result is smaller, and only when the
// rewrite provably keeps every token: content that does not read back
// cleanly, or that the writer would change in any way beyond spacing, is
// only recompressed as plain data, so a rewrite can never change what a
// page shows.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "pdfcore/CosObj.h"
#include "pipeline/StreamRecompress.h"

namespace pipeline {

struct ContentRewriteResult {
    RecompressResult recompress;  // the outcome for the stream as a whole
    bool rewritten = false;       // the rewritten content replaced the old one
};

// Rewrites `stream` (content with `resources` for inline images' named
// colour spaces) and stores it Flate-compressed at `level` when that is
// smaller than its stored form now; otherwise recompresses the data as it
// is, as RecompressPlainStream does.  The reader's complaints are not
// logged: they only decide that the content is kept as it was.
ContentRewriteResult RewriteContentStream(CosObj stream, CosObj resources, int level);

// The rewritten text of `content`, or false when it does not read back as
// the same tokens (a damaged stream, a dropped operator, an inline image
// whose end is in doubt).
bool RewriteContentExactly(std::span<const uint8_t> content, CosObj resources, std::string& out);

}  // namespace pipeline
