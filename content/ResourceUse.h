// Which resources a content stream uses, by category.
#pragma once

#include <map>
#include <set>
#include <string>

#include "content/ContentHandler.h"

// The names a content stream uses, by resource category ("Font",
// "XObject", "ExtGState", "ColorSpace", "Pattern", "Shading",
// "Properties").
using ResourceNames = std::map<std::string, std::set<std::string>>;

// Collects the resource names used by the content it reads, inline images
// included.  With descent on (the default), forms, patterns, soft masks
// and Type 3 glyphs are followed, and their names are recorded against the
// resource dictionary they are looked up in.
class ResourceUseHandler : public ContentHandler {
public:
    explicit ResourceUseHandler(Log* log = nullptr, bool descend = true);

    // The names used with `resources` as the current resource dictionary.
    const ResourceNames& UsedIn(CosObj resources) const;
    // Every resource dictionary met, with its names.
    const std::map<CosObj, ResourceNames>& All() const { return m_used; }

    bool WantsDescent() const override { return m_descend; }

    void SetDeviceDependentGraphicsState(OperandStack& s) override;
    void SetColorFillN(OperandStack& s) override;
    void SetColorStrokeN(OperandStack& s) override;
    void SetColorSpaceFill(OperandStack& s) override;
    void SetColorSpaceStroke(OperandStack& s) override;
    void SetShadedFill(OperandStack& s) override;
    void SetTextFontAndSize(OperandStack& s) override;
    void BeginMarkedContentProps(OperandStack& s) override;
    void MarkPointProps(OperandStack& s) override;
    void ExecuteXObject(OperandStack& s) override;
    void EndImage(OperandStack& s) override;

private:
    void Use(const char* category, const std::string& name);
    void UseColorSpace(const std::string& name);

    bool m_descend;
    std::map<CosObj, ResourceNames> m_used;
};

// The resource names used by a page's content (without descending into
// forms: the page's own resource dictionary's names).
ResourceNames PageResourceUse(CosObj page, Log* log = nullptr);
