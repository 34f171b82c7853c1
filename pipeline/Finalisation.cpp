#include "pipeline/Finalisation.h"

#include <boost/format.hpp>

#include "base/Formatters.h"
#include "base/Log.h"
#include "pdfcore/CosNames.h"
#include "pipeline/ViewingPlan.h"
#include "settings/TrimoraPreferences.h"

namespace pipeline {
namespace {

const ASAtom K_Enhanced = ASAtomFromString("Enhanced");

// Decodes one UTF-8 sequence; malformed bytes read as U+FFFD.
char32_t NextCodePoint(const std::string& s, size_t& i) {
    const auto b = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    unsigned char c = b(i);
    int len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (len == 0 || i + size_t(len) > s.size()) {
        ++i;
        return 0xFFFD;
    }
    char32_t cp = len == 1 ? c : c & (0xFF >> (len + 1));
    for (int k = 1; k < len; ++k) {
        if ((b(i + size_t(k)) & 0xC0) != 0x80) {
            ++i;
            return 0xFFFD;
        }
        cp = (cp << 6) | (b(i + size_t(k)) & 0x3F);
    }
    i += size_t(len);
    return cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF) ? 0xFFFD : cp;
}

CosObj InfoDict(CosDoc doc) {
    CosObj info = CosDocGetInfo(doc);
    if (CosObjGetType(info) == kCosDict) return info;
    info = CosNewDict(doc, true, 8);
    CosDictPut(CosDocGetTrailer(doc), cosnames::Info, info);
    return info;
}

void PutText(CosObj dict, ASAtom key, const std::string& utf8) {
    CosDictPut(dict, key, CosNewString(CosObjGetDoc(dict), false, PdfTextString(utf8)));
}

}  // namespace

std::string PdfTextString(const std::string& utf8) {
    bool ascii = true;
    for (char c : utf8)
        if (static_cast<unsigned char>(c) >= 0x80) ascii = false;
    if (ascii) return utf8;
    std::string out = "\xFE\xFF";
    auto put16 = [&](char32_t u) {
        out += char((u >> 8) & 0xFF);
        out += char(u & 0xFF);
    };
    for (size_t i = 0; i < utf8.size();) {
        char32_t cp = NextCodePoint(utf8, i);
        if (cp >= 0x10000) {
            cp -= 0x10000;
            put16(0xD800 + (cp >> 10));
            put16(0xDC00 + (cp & 0x3FF));
        } else {
            put16(cp);
        }
    }
    return out;
}

void Finalise(PDDoc pd, CTrimoraPreferences& prefs, Log& log, const std::tm& now) {
    CosDoc doc = PDDocGetCosDoc(pd);
    if (prefs.Metadata().Enabled()) {
        log.Progress("Setting Info Fields\n");
        CosObj info = InfoDict(doc);
        for (const auto& [key, value] : prefs.Metadata().entries) {
            if (key.empty()) continue;
            PutText(info, ASAtomFromString(key), value);
        }
        if (prefs.Optimize().touchDates) {
            const std::string date = PdfDateText(now);
            PutText(info, cosnames::CreationDate, date);
            PutText(info, cosnames::ModDate, date);
        }
        PutText(info, K_Enhanced, (boost::format("By %1%") % prefs.ProducerText()).str());
    }

    log.Progress("Setting Additional Settings (if any) \n");
    const ViewingPlan plan = MakeViewingPlan(prefs.Viewing());
    if (plan.Any()) {
        const ASInt32 pages = PDDocGetNumPages(pd);
        CosObj openPage = CosNewNull();
        if (pages > 0) {
            ASInt32 index = plan.startingPage > 0 ? std::min(plan.startingPage, pages) - 1 : 0;
            openPage = PDDocGetPageObj(pd, index);
        }
        ApplyViewingPlan(CosDocGetRoot(doc), plan, openPage);
    }
}

}  // namespace pipeline
