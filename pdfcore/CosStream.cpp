// Streams: their dictionary and data, raw or decoded through the filter layer.
#include <algorithm>

#include "filters/Filters.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/CosObjImpl.h"

namespace {

CosStreamBody* StreamOf(CosObj obj) {
    obj = CosResolve(obj);
    CosCheckType(obj, kCosStream);
    return obj->u.stm;
}

// Program-made streams are indirect at once; streams read from a file get
// their number when the loader installs them, so reading never grows the
// object table underneath the loader.
CosObjRec* MakeStream(CosDoc doc, CosObj dict, bool indirect) {
    if (dict && !CosObjIsNull(dict)) {
        CosCheckType(dict, kCosDict);
        if (dict->doc != doc) ASRaiseErr(ErrSysCos, kErrBadOperation);
        if (dict->flags & (kRecContained | kRecIndirect)) ASRaiseErr(ErrSysCos, kErrExpectedDirect);
    } else {
        dict = CosNewDict(doc, false);
    }
    CosObjRec* r = CosNewRec(doc, kCosStream, indirect);
    r->u.stm = new CosStreamBody();
    r->u.stm->dict = dict;
    dict->flags |= kRecContained;
    r->u.stm->cryptNum = r->objNum;
    return r;
}

// How many JBIG2Globals streams are being decoded inside each other: a
// globals stream may name itself (or a ring of others) as its own globals.
int g_globalsDepth = 0;
constexpr int kMaxGlobalsDepth = 2;

// One filter's parameters from a DecodeParms dictionary.
filters::FilterParams ParamsFrom(CosObj parms) {
    filters::FilterParams p;
    if (CosObjGetType(parms) != kCosDict) return p;
    for (ASInt32 i = 0, n = CosDictCount(parms); i < n; ++i) {
        ASAtom key = CosDictKeyAt(parms, i);
        CosObj v = CosDictValueAt(parms, i);
        switch (CosObjGetType(v)) {
            case kCosInteger:
            case kCosFixed: p.values[ASAtomGetString(key)] = CosFixedValue(v); break;
            case kCosBoolean: p.values[ASAtomGetString(key)] = CosBooleanValue(v) ? 1 : 0; break;
            case kCosStream:
                if (key == cosnames::JBIG2Globals && g_globalsDepth < kMaxGlobalsDepth) {
                    ++g_globalsDepth;
                    try {
                        p.jbig2Globals = CosStreamDecodedData(v);
                    } catch (...) {
                        --g_globalsDepth;
                        throw;
                    }
                    --g_globalsDepth;
                }
                break;
            default: break;
        }
    }
    return p;
}

filters::FilterStep StepFor(CosObj name, CosObj parms) {
    if (CosObjGetType(name) != kCosName) {
        filters::Warn("Bad filter name");
        ASRaiseErr(ErrSysCos, kErrUnknownFilter);
    }
    return filters::FilterStep{ASAtomGetString(CosNameValue(name)), ParamsFrom(parms)};
}

}  // namespace

static filters::FilterChain CosStreamFilterChain(CosObj stream) {
    CosObj dict = CosStreamDict(stream);
    CosObj filter = CosDictGet(dict, cosnames::Filter);
    CosObj parms = CosDictGet(dict, cosnames::DecodeParms);
    filters::FilterChain chain;
    switch (CosObjGetType(filter)) {
        case kCosNull: break;
        case kCosName:
            chain.push_back(StepFor(filter, CosObjGetType(parms) == kCosArray ? CosArrayGet(parms, 0) : parms));
            break;
        case kCosArray:
            for (ASInt32 i = 0, n = CosArrayLength(filter); i < n; ++i) {
                CosObj p = CosObjGetType(parms) == kCosArray ? CosArrayGet(parms, i)
                           : (i == 0 ? parms : CosNewNull());
                chain.push_back(StepFor(CosArrayGet(filter, i), p));
            }
            break;
        default:
            filters::Warn("Bad 'Filter' attribute in stream");
            ASRaiseErr(ErrSysCos, kErrUnknownFilter);
    }
    return chain;
}

CosObj CosNewStream(CosDoc doc, CosObj dict, std::span<const uint8_t> encodedData) {
    CosObjRec* r = MakeStream(doc, dict, true);
    r->u.stm->owned.assign(encodedData.begin(), encodedData.end());
    r->u.stm->changed = true;
    return r;
}

CosObj CosNewStreamFromFile(CosDoc doc, CosObj dict, uint64_t offset, uint64_t length, bool encrypted) {
    CosObjRec* r = MakeStream(doc, dict, false);
    CosStreamBody* s = r->u.stm;
    s->inFile = true;
    s->offset = offset;
    s->length = length;
    s->encrypted = encrypted;
    r->flags &= static_cast<uint8_t>(~kRecChanged);
    return r;
}

void CosStreamSetCryptID(CosObj stream, ASInt32 objNum, ASUns16 gen) {
    CosStreamBody* s = StreamOf(stream);
    s->cryptNum = objNum;
    s->cryptGen = gen;
}

CosObj CosStreamDict(CosObj stream) { return StreamOf(stream)->dict; }

std::span<const uint8_t> CosStreamEncodedData(CosObj stream) {
    stream = CosResolve(stream);
    CosStreamBody* s = StreamOf(stream);
    if (!s->inFile) return {s->owned.data(), s->owned.size()};
    CosFileSource* src = stream->doc->source.get();
    if (!src) return {};
    uint64_t size = src->Size();
    uint64_t begin = std::min<uint64_t>(s->offset, size);
    uint64_t len = std::min<uint64_t>(s->length, size - begin);
    std::span<const uint8_t> raw(src->Data() + begin, static_cast<size_t>(len));
    CosCryptFilter* crypt = stream->doc->readCrypt.get();
    if (!s->encrypted || !crypt) return raw;
    // Decrypt once and keep the plain bytes; the stream no longer reads the file.
    s->owned.assign(raw.begin(), raw.end());
    crypt->Decrypt(static_cast<ASUns32>(s->cryptNum), s->cryptGen, s->owned);
    s->inFile = false;
    s->encrypted = false;
    return {s->owned.data(), s->owned.size()};
}

size_t CosStreamEncodedLength(CosObj stream) { return CosStreamEncodedData(stream).size(); }

std::vector<uint8_t> CosStreamDecodedData(CosObj stream, const CosDecodeOptions& opts, bool* complete) {
    filters::FilterChain chain = CosStreamFilterChain(stream);
    std::span<const uint8_t> raw = CosStreamEncodedData(stream);
    if (chain.empty()) {
        if (complete) *complete = true;
        return std::vector<uint8_t>(raw.begin(), raw.end());
    }
    filters::DecodeOptions fo;
    fo.maxOutput = opts.maxOutput;
    fo.strict = opts.strict;
    fo.keepImageCodecs = opts.keepImageCodecs;
    filters::DecodeResult r = filters::DecodeChain(raw, chain, fo);
    if (complete) *complete = r.status == filters::DecodeStatus::Ok;
    return std::move(r.data);
}

void CosStreamSetEncodedData(CosObj stream, std::span<const uint8_t> encoded) {
    stream = CosResolve(stream);
    CosStreamBody* s = StreamOf(stream);
    s->owned.assign(encoded.begin(), encoded.end());
    s->inFile = false;
    s->encrypted = false;
    s->changed = true;
    stream->flags |= kRecChanged;
    CosDictPutInteger(s->dict, cosnames::Length, static_cast<ASInt32>(s->owned.size()));
}

void CosStreamSetDecodedData(CosObj stream, std::span<const uint8_t> decoded, int flateLevel) {
    stream = CosResolve(stream);
    CosStreamBody* s = StreamOf(stream);
    CosDictRemove(s->dict, cosnames::DecodeParms);
    if (flateLevel >= 0) {
        filters::Bytes enc = filters::FlateEncode(decoded, std::min(flateLevel, filters::kFlateMaxLevel));
        CosDictPutName(s->dict, cosnames::Filter, false, cosnames::FlateDecode);
        CosStreamSetEncodedData(stream, enc);
    } else {
        CosDictRemove(s->dict, cosnames::Filter);
        CosStreamSetEncodedData(stream, decoded);
    }
}

bool CosStreamDataChanged(CosObj stream) { return StreamOf(stream)->changed; }
