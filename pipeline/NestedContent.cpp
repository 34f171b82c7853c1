#include "pipeline/NestedContent.h"

#include <string>
#include <vector>

#include "content/ContentHandler.h"
#include "filters/Filters.h"
#include "pdfcore/CosDoc.h"

namespace pipeline {
namespace {

const ASAtom K_Filter = ASAtomFromString("Filter");
const ASAtom K_DecodeParms = ASAtomFromString("DecodeParms");
const ASAtom K_FlateDecode = ASAtomFromString("FlateDecode");

// "/Filter/FlateDecode" in the written dictionary.
constexpr size_t kFlateEntryCost = 20;

// The base handler writing the content back, with every complaint of the
// reader remembered instead of logged: a stream that needed one is kept.
class CheckedRewriter : public ContentHandler {
public:
    explicit CheckedRewriter(CosObj resources) { SetResources(resources); }
    void Report(Log::Channel channel, const char*) override {
        if (channel == Log::kWarning || channel == Log::kError) ++complaints;
    }
    int complaints = 0;
};

// Every token the reader sees, in a canonical text: two streams with equal
// signatures hold the same operators with the same operands in the same
// order (and the same inline image bytes).  F is the same operator as f.
class TokenSignature : public ContentHandler {
public:
    TokenSignature() { m_out.SetEnabled(false); }
    void Report(Log::Channel, const char*) override {}
    void Operand(const ContentToken& token) override {
        if (token.kind == ContentTokenKind::InlineImageData) {
            text += std::to_string(token.text.size());
            text += ':';
            text += token.text;
        } else {
            ContentWriter::AppendToken(text, token);
        }
        text += ' ';
    }
    void Operator(std::string_view op) override {
        text += op == "F" ? std::string_view("f") : op;
        text += '\n';
    }
    std::string text;
};

std::string Signature(std::span<const uint8_t> data) {
    TokenSignature s;
    s.RunContent(data);
    return std::move(s.text);
}

std::span<const uint8_t> Bytes(const std::string& s) {
    return {reinterpret_cast<const uint8_t*>(s.data()), s.size()};
}

}  // namespace

bool RewriteContentExactly(std::span<const uint8_t> content, CosObj resources, std::string& out) {
    CheckedRewriter w(resources);
    w.RunContent(content);
    if (w.complaints > 0 || w.Mismatched()) return false;
    out = w.Out().TakeText();
    return Signature(content) == Signature(Bytes(out));
}

ContentRewriteResult RewriteContentStream(CosObj stream, CosObj resources, int level) {
    ContentRewriteResult result;
    if (CosObjGetType(stream) != kCosStream) return result;
    std::vector<uint8_t> data;
    bool decoded = false;
    try {
        CosDecodeOptions opts;
        opts.strict = true;
        bool complete = false;
        data = CosStreamDecodedData(stream, opts, &complete);
        decoded = complete;
    } catch (const CVellumError&) {
    }
    std::string text;
    if (decoded && level > 0 && RewriteContentExactly(data, resources, text)) {
        const size_t before = CosStreamEncodedLength(stream);
        const bool filtered = !CosObjIsNull(CosDictGet(stream, K_Filter));
        filters::Bytes enc = filters::FlateEncode(Bytes(text), level);
        if (enc.size() + (filtered ? 0 : kFlateEntryCost) < before) {
            CosDictPutName(stream, K_Filter, false, K_FlateDecode);
            CosDictRemove(stream, K_DecodeParms);
            CosStreamSetEncodedData(stream, enc);
            result.rewritten = true;
            result.recompress.outcome = RecompressOutcome::Smaller;
            result.recompress.before = before;
            result.recompress.after = enc.size();
            return result;
        }
    }
    // Not rewritable, or the rewrite saved nothing: the data as it is.
    result.recompress = RecompressPlainStream(stream, level);
    return result;
}

}  // namespace pipeline
