// Filter names, the warning sink, and the decoding chain that strings the
// stages together.
#include <algorithm>
#include <cmath>
#include <utility>

#include "filters/FilterStage.h"
#include "filters/Filters.h"
#include "base/ASError.h"

namespace filters {

namespace {

struct NameEntry {
    const char* full;
    const char* abbrev;
    bool imageCodec;
};
const NameEntry kNames[] = {
    {"ASCIIHexDecode", "AHx", false}, {"ASCII85Decode", "A85", false},
    {"LZWDecode", "LZW", false},      {"FlateDecode", "Fl", false},
    {"RunLengthDecode", "RL", false}, {"CCITTFaxDecode", "CCF", true},
    {"DCTDecode", "DCT", true},       {"JBIG2Decode", nullptr, true},
    {"JPXDecode", nullptr, true},     {"Crypt", nullptr, false},
};

WarningSink& Sink() {
    static WarningSink sink;
    return sink;
}

}  // namespace

std::string CanonicalFilterName(const std::string& name) {
    for (const auto& e : kNames) {
        if (name == e.full || (e.abbrev && name == e.abbrev)) return e.full;
    }
    return {};
}

bool IsImageCodec(const std::string& canonicalName) {
    for (const auto& e : kNames) {
        if (canonicalName == e.full) return e.imageCodec;
    }
    return false;
}

void SetWarningSink(WarningSink sink) { Sink() = std::move(sink); }
WarningSink GetWarningSink() { return Sink(); }

void Warn(const std::string& text) {
    if (Sink()) Sink()(text);
}

void WarnBadFilterName() { Warn("Bad filter name"); }
void WarnBadFilterAttribute() { Warn("Bad 'Filter' attribute in stream"); }

namespace detail {

int IntParam(const FilterParams& params, const char* key, int dflt, int lo, int hi, int errorNumber) {
    double v = params.Get(key, dflt);
    if (!std::isfinite(v) || v < lo || v > hi) {
        Fail(errorNumber, std::string("bad ") + key + " in decode parameters");
    }
    return static_cast<int>(v);
}

namespace {

// The end of the chain: hands the bytes to the caller.
class CallbackSink : public StageSink {
public:
    explicit CallbackSink(OutputCallback cb) : cb_(std::move(cb)) {}
    void Put(const uint8_t* data, size_t size) override { cb_(ByteSpan(data, size)); }

private:
    OutputCallback cb_;
};

// Links a stage to the next one.
class StageLink : public StageSink {
public:
    explicit StageLink(FilterStage* next) : next_(next) {}
    void Put(const uint8_t* data, size_t size) override { next_->Write(data, size); }

private:
    FilterStage* next_;
};

}  // namespace
}  // namespace detail

using namespace detail;

struct Decoder::Impl {
    // The stages in chain order; a step may bring two (Flate + predictor).
    std::vector<std::unique_ptr<FilterStage>> stages;
    std::vector<std::unique_ptr<StageSink>> links;
    // How many of the chain's steps the stages cover.
    size_t stepsCovered = 0;
    DecodeStatus endStatus = DecodeStatus::Ok;
    DecodeStatus status = DecodeStatus::Ok;
    std::string message;
    DecodeOptions opts;
    bool finished = false;
    bool failed = false;  // a stage met damaged data: input is ignored from then on

    void HandleCorrupt(const CorruptData& c);
    void FinishFrom(size_t first);
};

void Decoder::Impl::HandleCorrupt(const CorruptData& c) {
    if (opts.strict) ASRaiseErr(ErrSysCos, c.errorNumber);
    Warn(c.message);
    if (!failed) {
        failed = true;
        status = DecodeStatus::Corrupt;
        message = c.message;
    }
}

// Finishes the stages from `first` on, so the data decoded before a damaged
// spot still flows through the filters after it.
void Decoder::Impl::FinishFrom(size_t first) {
    for (size_t i = first; i < stages.size(); ++i) {
        try {
            stages[i]->Finish();
        } catch (const CorruptData& c) {
            HandleCorrupt(c);
        } catch (const OutputTooLarge&) {
            ASRaiseErr(ErrSysCos, kErrTooComplex);
        }
    }
}

Decoder::Decoder(const FilterChain& chain, const DecodeOptions& opts, OutputCallback out)
    : impl_(std::make_unique<Impl>()) {
    impl_->opts = opts;
    // Every name is checked before anything decodes, so an unknown filter
    // fails the same way wherever it stands in the chain.
    std::vector<std::string> names;
    for (const auto& step : chain) {
        std::string canon = CanonicalFilterName(step.name);
        if (canon.empty()) ASRaiseErr(ErrSysCos, kErrUnknownFilter);
        names.push_back(canon);
    }
    try {
        for (size_t i = 0; i < chain.size(); ++i) {
            const std::string& n = names[i];
            const FilterParams& p = chain[i].params;
            if (n == "JPXDecode") {
                impl_->endStatus = DecodeStatus::Undecodable;
                break;
            }
            if (opts.keepImageCodecs && IsImageCodec(n)) {
                impl_->endStatus = DecodeStatus::Partial;
                break;
            }
            if (n == "ASCIIHexDecode") impl_->stages.push_back(MakeASCIIHexStage());
            else if (n == "ASCII85Decode") impl_->stages.push_back(MakeASCII85Stage());
            else if (n == "RunLengthDecode") impl_->stages.push_back(MakeRunLengthStage());
            else if (n == "LZWDecode" || n == "FlateDecode") {
                impl_->stages.push_back(n == "LZWDecode" ? MakeLZWStage(p) : MakeFlateStage());
                if (auto pred = MakePredictorStage(p)) impl_->stages.push_back(std::move(pred));
            } else if (n == "CCITTFaxDecode") impl_->stages.push_back(MakeCCITTFaxStage(p));
            else if (n == "DCTDecode") impl_->stages.push_back(MakeDCTStage(p));
            else if (n == "JBIG2Decode") impl_->stages.push_back(MakeJBIG2Stage(p));
            // Crypt: decryption is the core's business; an Identity crypt
            // filter leaves the bytes as they are.
            impl_->stepsCovered = i + 1;
        }
    } catch (const CorruptData& c) {
        // Parameters that make no sense: nothing can be decoded.
        if (opts.strict) ASRaiseErr(ErrSysCos, c.errorNumber);
        Warn(c.message);
        impl_->stages.clear();
        impl_->failed = true;
        impl_->status = DecodeStatus::Corrupt;
        impl_->message = c.message;
    }
    impl_->links.push_back(std::make_unique<CallbackSink>(std::move(out)));
    StageSink* next = impl_->links.back().get();
    for (size_t i = impl_->stages.size(); i-- > 0;) {
        impl_->stages[i]->Connect(next, opts.maxOutput);
        impl_->links.push_back(std::make_unique<StageLink>(impl_->stages[i].get()));
        next = impl_->links.back().get();
    }
}

Decoder::~Decoder() = default;

void Decoder::Write(ByteSpan chunk) {
    Impl& d = *impl_;
    if (d.finished || d.failed || chunk.empty()) return;
    if (d.stages.empty()) {
        // Pass-through: the first link is the caller's callback.
        d.links.front()->Put(chunk.data(), chunk.size());
        return;
    }
    try {
        d.stages.front()->Write(chunk.data(), chunk.size());
    } catch (const CorruptData& c) {
        // The exception marked the failing stage and every stage before it
        // dead; the ones after it still hold data worth flushing.
        d.HandleCorrupt(c);
        size_t after = 0;
        for (size_t i = 0; i < d.stages.size(); ++i) {
            if (d.stages[i]->Dead()) after = i + 1;
        }
        d.FinishFrom(after);
    } catch (const OutputTooLarge&) {
        ASRaiseErr(ErrSysCos, kErrTooComplex);
    }
}

void Decoder::Finish() {
    Impl& d = *impl_;
    if (d.finished) return;
    d.finished = true;
    if (!d.stages.empty()) d.FinishFrom(0);
    if (d.status == DecodeStatus::Ok) d.status = d.endStatus;
}

DecodeStatus Decoder::Status() const { return impl_->status; }
size_t Decoder::FiltersApplied() const { return impl_->stepsCovered; }
const std::string& Decoder::Message() const { return impl_->message; }

DecodeResult DecodeChain(ByteSpan in, const FilterChain& chain, const DecodeOptions& opts) {
    DecodeResult r;
    Bytes& outBuf = r.data;
    // Most streams grow a few times when decoded; a guess saves regrowth.
    outBuf.reserve(static_cast<size_t>(std::min<uint64_t>(uint64_t(in.size()) * 4, opts.maxOutput)));
    Decoder dec(chain, opts, [&outBuf](ByteSpan s) { outBuf.insert(outBuf.end(), s.begin(), s.end()); });
    dec.Write(in);
    dec.Finish();
    r.status = dec.Status();
    r.filtersApplied = dec.FiltersApplied();
    r.message = dec.Message();
    return r;
}

namespace {
Bytes DecodeOneStep(ByteSpan in, const char* name, const FilterParams& params) {
    return DecodeChain(in, {FilterStep{name, params}}).data;
}
}  // namespace

Bytes ASCIIHexDecode(ByteSpan in) { return DecodeOneStep(in, "ASCIIHexDecode", {}); }
Bytes ASCII85Decode(ByteSpan in) { return DecodeOneStep(in, "ASCII85Decode", {}); }
Bytes RunLengthDecode(ByteSpan in) { return DecodeOneStep(in, "RunLengthDecode", {}); }
Bytes LZWDecode(ByteSpan in, const FilterParams& params) { return DecodeOneStep(in, "LZWDecode", params); }
Bytes FlateDecode(ByteSpan in, const FilterParams& params) { return DecodeOneStep(in, "FlateDecode", params); }
Bytes CCITTFaxDecode(ByteSpan in, const FilterParams& params) {
    return DecodeOneStep(in, "CCITTFaxDecode", params);
}
Bytes JBIG2Decode(ByteSpan in, const FilterParams& params) { return DecodeOneStep(in, "JBIG2Decode", params); }

}  // namespace filters
