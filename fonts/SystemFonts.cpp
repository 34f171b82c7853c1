#include "fonts/SystemFonts.h"

#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <mutex>
#include <string_view>
#include <vector>

#include "fonts/FontDict.h"

namespace fonts {

namespace {

std::string Lower(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    for (char c : s) out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// Lower case without blanks, hyphens and underscores: the form in which
// "Times New Roman", "TimesNewRoman" and "Times_New_Roman" agree.
std::string Key(std::string_view s) {
    std::string out;
    for (char c : s)
        if (c != ' ' && c != '-' && c != '_') out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

bool EndsWith(std::string_view s, std::string_view end) {
    return s.size() >= end.size() && s.substr(s.size() - end.size()) == end;
}

bool StartsWith(std::string_view s, std::string_view start) { return s.substr(0, start.size()) == start; }

// Reads a lower-case style such as "bolditalic", "roman" or "boldoblique".
// False when anything else is left over.
bool ReadStyle(std::string style, bool& bold, bool& italic) {
    if (EndsWith(style, "mt")) style.resize(style.size() - 2);
    static const std::array<std::pair<const char*, int>, 7> kWords{{
        {"bold", 1}, {"italic", 2}, {"oblique", 2}, {"roman", 0}, {"regular", 0}, {"normal", 0}, {"plain", 0},
    }};
    std::string_view rest = style;
    while (!rest.empty()) {
        bool found = false;
        for (auto [word, what] : kWords) {
            if (!StartsWith(rest, word)) continue;
            if (what == 1) bold = true;
            if (what == 2) italic = true;
            rest.remove_prefix(std::string_view(word).size());
            found = true;
            break;
        }
        if (!found) return false;
    }
    return true;
}

// ------------------------------------------------------------ fixed substitutes

enum class Formats { Text, SymbolText, Liberation };

struct FixedFamily {
    const char* key;             // the family's Key() after MT and PS suffixes are cut
    const char* faces[4];        // regular, bold, italic, bold italic PostScript names
    bool serif;
    Formats formats;
};

const FixedFamily kFixedFamilies[] = {
    {"helvetica", {"NimbusSans-Regular", "NimbusSans-Bold", "NimbusSans-Italic", "NimbusSans-BoldItalic"}, false,
     Formats::Text},
    {"helveticanarrow",
     {"NimbusSansNarrow-Regular", "NimbusSansNarrow-Bold", "NimbusSansNarrow-Oblique", "NimbusSansNarrow-BoldOblique"},
     false, Formats::Text},
    {"times", {"NimbusRoman-Regular", "NimbusRoman-Bold", "NimbusRoman-Italic", "NimbusRoman-BoldItalic"}, true,
     Formats::Text},
    {"courier", {"NimbusMonoPS-Regular", "NimbusMonoPS-Bold", "NimbusMonoPS-Italic", "NimbusMonoPS-BoldItalic"},
     true, Formats::Text},
    {"newcenturyschlbk", {"C059-Roman", "C059-Bold", "C059-Italic", "C059-BdIta"}, true, Formats::Text},
    {"palatino", {"P052-Roman", "P052-Bold", "P052-Italic", "P052-BoldItalic"}, true, Formats::Text},
    // Symbol fonts have no bold or italic faces: a viewer fakes those,
    // and a regular face embedded for them would draw differently.
    {"symbol", {"StandardSymbolsPS", nullptr, nullptr, nullptr}, false, Formats::SymbolText},
    {"zapfdingbats", {"D050000L", nullptr, nullptr, nullptr}, false, Formats::SymbolText},
    {"arial", {"LiberationSans", "LiberationSans-Bold", "LiberationSans-Italic", "LiberationSans-BoldItalic"}, false,
     Formats::Liberation},
    {"timesnewroman",
     {"LiberationSerif", "LiberationSerif-Bold", "LiberationSerif-Italic", "LiberationSerif-BoldItalic"}, true,
     Formats::Liberation},
    {"couriernew", {"LiberationMono", "LiberationMono-Bold", "LiberationMono-Italic", "LiberationMono-BoldItalic"},
     true, Formats::Liberation},
};

// The standard 35 faces whose weights are not bold or regular: matched by
// their exact names.
struct FixedName {
    const char* pdfName;
    const char* face;
    bool serif;
};
const FixedName kFixedNames[] = {
    {"Helvetica-Narrow", "NimbusSansNarrow-Regular", false},
    {"AvantGarde-Book", "URWGothic-Book", false},
    {"AvantGarde-BookOblique", "URWGothic-BookOblique", false},
    {"AvantGarde-Demi", "URWGothic-Demi", false},
    {"AvantGarde-DemiOblique", "URWGothic-DemiOblique", false},
    {"Bookman-Light", "URWBookman-Light", true},
    {"Bookman-LightItalic", "URWBookman-LightItalic", true},
    {"Bookman-Demi", "URWBookman-Demi", true},
    {"Bookman-DemiItalic", "URWBookman-DemiItalic", true},
    {"ZapfChancery-MediumItalic", "Z003-MediumItalic", false},
};

// Which file of a face to embed, best first.  A text face's CFF program,
// kept as FontFile3, compresses to less than half the size of the same
// face's Type 1 program, whose encrypted part does not compress; once
// subset, both come to the same size.  The symbol faces' CFF
// programs carry no encoding of their own, and without an /Encoding in
// the PDF a viewer would reach no glyph through them: their Type 1
// programs, whose built-in encodings are right, are taken.
std::vector<FontFileFormat> Preference(Formats f) {
    switch (f) {
    case Formats::Text:
        return {FontFileFormat::OpenTypeCff, FontFileFormat::Type1};
    case Formats::SymbolText:
        return {FontFileFormat::Type1};
    case Formats::Liberation:
        return {FontFileFormat::TrueType};
    }
    return {};
}

struct FixedChoice {
    std::string face;
    bool serif = false;
    bool symbolic = false;
    Formats formats = Formats::Text;
};

std::optional<FixedChoice> FixedSubstitute(const std::string& name, const FontNameParts& parts) {
    for (const FixedName& f : kFixedNames)
        if (name == f.pdfName) return FixedChoice{f.face, f.serif, false, Formats::Text};
    if (!parts.styleKnown) return std::nullopt;
    std::string key = Key(parts.family);
    if (EndsWith(key, "mt")) key.resize(key.size() - 2);
    if (EndsWith(key, "ps")) key.resize(key.size() - 2);
    if (key == "timesroman") key = "times";
    for (const FixedFamily& f : kFixedFamilies) {
        if (key != f.key) continue;
        const char* face = f.faces[(parts.bold ? 1 : 0) + (parts.italic ? 2 : 0)];
        if (!face) return std::nullopt;
        return FixedChoice{face, f.serif, f.formats == Formats::SymbolText, f.formats};
    }
    return std::nullopt;
}

// ------------------------------------------------------------ the configuration

struct Face {
    std::string path;
    FontFileFormat format;
    std::string family;
    std::string postScriptName;
};

std::optional<FontFileFormat> FormatOf(const char* fontFormat) {
    std::string_view f = fontFormat ? fontFormat : "";
    if (f == "Type 1") return FontFileFormat::Type1;
    if (f == "CFF") return FontFileFormat::OpenTypeCff;
    if (f == "TrueType") return FontFileFormat::TrueType;
    return std::nullopt;
}

std::string GetString(FcPattern* p, const char* object, int n = 0) {
    FcChar8* s = nullptr;
    if (FcPatternGetString(p, object, n, &s) != FcResultMatch || !s) return {};
    return reinterpret_cast<const char*>(s);
}

// A face that can be embedded as it is: the first font of a plain file
// (not a collection member, not a variable font) in one of the formats
// a PDF can hold.
std::optional<Face> EmbeddableFace(FcPattern* p) {
    int index = 0;
    FcBool variable = FcFalse;
    if (FcPatternGetInteger(p, FC_INDEX, 0, &index) == FcResultMatch && index != 0) return std::nullopt;
    if (FcPatternGetBool(p, FC_VARIABLE, 0, &variable) == FcResultMatch && variable) return std::nullopt;
    std::optional<FontFileFormat> format = FormatOf(GetString(p, FC_FONTFORMAT).c_str());
    std::string path = GetString(p, FC_FILE);
    if (!format || path.empty()) return std::nullopt;
    return Face{path, *format, GetString(p, FC_FAMILY), GetString(p, FC_POSTSCRIPT_NAME)};
}

class Catalogue {
public:
    static Catalogue& Get() {
        static Catalogue c;
        return c;
    }

    std::optional<SystemFont> Find(const std::string& pdfName, std::string& why) {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_answers.find(pdfName);
        if (it == m_answers.end()) {
            // Documents full of made-up names must not grow the memory
            // of a long run without end.
            if (m_answers.size() >= kMaxAnswers) m_answers.clear();
            Answer a;
            a.font = Lookup(pdfName, a.why);
            it = m_answers.emplace(pdfName, std::move(a)).first;
        }
        why = it->second.why;
        return it->second.font;
    }

    // The configuration holds its values through offsets, which leak
    // checkers cannot follow: it is released at exit so that they see it
    // go rather than report it.
    ~Catalogue() {
        if (m_config) FcConfigDestroy(m_config);
    }

private:
    Catalogue() = default;

    struct Answer {
        std::optional<SystemFont> font;
        std::string why;
    };

    // Loads the configuration and lists, once, every face by PostScript
    // name; later lookups do not go back to the configuration for them.
    void Load() {
        if (m_loaded) return;
        m_loaded = true;
        m_config = FcInitLoadConfigAndFonts();
        if (!m_config) return;
        FcPattern* all = FcPatternCreate();
        FcObjectSet* os =
            FcObjectSetBuild(FC_FILE, FC_INDEX, FC_FAMILY, FC_POSTSCRIPT_NAME, FC_FONTFORMAT, FC_VARIABLE, nullptr);
        FcFontSet* set = FcFontList(m_config, all, os);
        if (set) {
            for (int i = 0; i < set->nfont; ++i) {
                std::optional<Face> f = EmbeddableFace(set->fonts[i]);
                if (f && !f->postScriptName.empty()) m_byPostScriptName[Lower(f->postScriptName)].push_back(*f);
            }
            FcFontSetDestroy(set);
        }
        FcObjectSetDestroy(os);
        FcPatternDestroy(all);
        // Listing order follows the configuration's directories; sorting
        // by path keeps the choice among equal files the same everywhere.
        for (auto& [name, faces] : m_byPostScriptName)
            std::sort(faces.begin(), faces.end(), [](const Face& a, const Face& b) { return a.path < b.path; });
    }

    const Face* ByPostScriptName(const std::string& name, const std::vector<FontFileFormat>& formats) {
        auto it = m_byPostScriptName.find(Lower(name));
        if (it == m_byPostScriptName.end()) return nullptr;
        for (FontFileFormat f : formats)
            for (const Face& face : it->second)
                if (face.format == f) return &face;
        return nullptr;
    }

    std::optional<SystemFont> Lookup(const std::string& pdfName, std::string& why) {
        Load();
        if (!m_config) {
            why = "the font configuration cannot be loaded";
            return std::nullopt;
        }
        std::string name = HasSubsetTag(pdfName) ? pdfName.substr(7) : pdfName;
        FontNameParts parts = SplitFontName(name);
        std::string fixedMissing;
        if (std::optional<FixedChoice> fixed = FixedSubstitute(name, parts)) {
            if (const Face* face = ByPostScriptName(fixed->face, Preference(fixed->formats)))
                return SystemFont{face->path,    face->format, face->family, face->postScriptName, true,
                                  fixed->symbolic, fixed->serif};
            // The font itself may be installed.
            fixedMissing = "its metric-compatible substitute " + fixed->face + " is not installed, and ";
        }
        const std::vector<FontFileFormat> any{FontFileFormat::OpenTypeCff, FontFileFormat::TrueType,
                                              FontFileFormat::Type1};
        std::optional<SystemFont> found;
        if (const Face* face = ByPostScriptName(name, any))
            found = SystemFont{face->path, face->format, face->family, face->postScriptName, false, false, false};
        else if (!parts.styleKnown || parts.family.empty())
            why = "no installed font has that name";
        else
            found = ByFamily(parts, why);
        if (!found) why = fixedMissing + why;
        return found;
    }

    // The configuration's best face for the family and style, when it is
    // of that family and style.
    std::optional<SystemFont> ByFamily(const FontNameParts& parts, std::string& why) {
        FcPattern* pat = FcPatternCreate();
        FcPatternAddString(pat, FC_FAMILY, reinterpret_cast<const FcChar8*>(parts.family.c_str()));
        FcPatternAddInteger(pat, FC_WEIGHT, parts.bold ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
        FcPatternAddInteger(pat, FC_SLANT, parts.italic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
        FcConfigSubstitute(m_config, pat, FcMatchPattern);
        FcDefaultSubstitute(pat);
        FcResult result = FcResultNoMatch;
        FcPattern* match = FcFontMatch(m_config, pat, &result);
        FcPatternDestroy(pat);
        std::optional<SystemFont> out;
        why = "no installed font of the family " + parts.family;
        if (match) {
            // Every name of the family counts (a face may carry localised
            // ones); the PostScript-style family ("TimesNewRomanPS") is
            // compared without its suffix.
            std::string want = Key(parts.family), bare = want;
            if (EndsWith(bare, "mt")) bare.resize(bare.size() - 2);
            if (EndsWith(bare, "ps")) bare.resize(bare.size() - 2);
            bool family = false;
            for (int n = 0; n < 16; ++n) {
                std::string f = GetString(match, FC_FAMILY, n);
                if (f.empty()) break;
                if (Key(f) == want || Key(f) == bare) family = true;
            }
            int weight = FC_WEIGHT_REGULAR, slant = FC_SLANT_ROMAN;
            FcPatternGetInteger(match, FC_WEIGHT, 0, &weight);
            FcPatternGetInteger(match, FC_SLANT, 0, &slant);
            std::optional<Face> face = EmbeddableFace(match);
            if (family) {
                if ((weight >= FC_WEIGHT_DEMIBOLD) != parts.bold || (slant != FC_SLANT_ROMAN) != parts.italic)
                    why = "the installed family " + parts.family + " has no face of that style";
                else if (!face)
                    why = "the installed font of the family " + parts.family + " cannot be embedded";
                else
                    out = SystemFont{face->path, face->format, face->family, face->postScriptName, false, false, false};
            }
            FcPatternDestroy(match);
        }
        return out;
    }

    std::mutex m_mutex;
    bool m_loaded = false;
    FcConfig* m_config = nullptr;  // kept until the process ends
    std::map<std::string, std::vector<Face>> m_byPostScriptName;
    static constexpr size_t kMaxAnswers = 4096;
    std::map<std::string, Answer> m_answers;
};

}  // namespace

FontNameParts SplitFontName(const std::string& pdfName) {
    FontNameParts parts;
    std::string name = HasSubsetTag(pdfName) ? pdfName.substr(7) : pdfName;
    size_t cut = name.find(',');
    if (cut == std::string::npos) cut = name.rfind('-');
    if (cut != std::string::npos) {
        parts.family = name.substr(0, cut);
        parts.styleKnown = ReadStyle(Key(name.substr(cut + 1)), parts.bold, parts.italic);
        return parts;
    }
    // No separator: "ArialMT", "ArialBold", "TimesNewRomanPSMT".
    parts.family = name;
    std::string key = Lower(name);
    if (EndsWith(key, "mt")) {
        key.resize(key.size() - 2);
        parts.family.resize(key.size());
    }
    static const char* const kSuffixes[] = {"bolditalic", "boldoblique", "bold", "italic", "oblique"};
    for (const char* s : kSuffixes) {
        std::string_view suffix(s);
        if (key.size() > suffix.size() && EndsWith(key, suffix)) {
            ReadStyle(std::string(suffix), parts.bold, parts.italic);
            parts.family.resize(key.size() - suffix.size());
            break;
        }
    }
    return parts;
}

std::optional<SystemFont> FindSystemFont(const std::string& pdfName, std::string* why) {
    std::string reason;
    std::optional<SystemFont> f = Catalogue::Get().Find(pdfName, reason);
    if (why) *why = f ? std::string() : reason;
    return f;
}

}  // namespace fonts
