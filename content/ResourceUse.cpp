#include "content/ResourceUse.h"

namespace {

bool IsDeviceSpace(const std::string& n) {
    return n == "DeviceGray" || n == "DeviceRGB" || n == "DeviceCMYK" || n == "Pattern" || n == "G" ||
           n == "RGB" || n == "CMYK" || n == "I" || n == "Indexed";
}

}  // namespace

ResourceUseHandler::ResourceUseHandler(Log* log, bool descend) : ContentHandler(log), m_descend(descend) {
    m_out.SetEnabled(false);
}

const ResourceNames& ResourceUseHandler::UsedIn(CosObj resources) const {
    static const ResourceNames kEmpty;
    auto it = m_used.find(resources);
    return it == m_used.end() ? kEmpty : it->second;
}

void ResourceUseHandler::Use(const char* category, const std::string& name) {
    m_used[Resources()][category].insert(name);
}

void ResourceUseHandler::UseColorSpace(const std::string& name) {
    if (!IsDeviceSpace(name)) Use("ColorSpace", name);
}

void ResourceUseHandler::SetDeviceDependentGraphicsState(OperandStack& s) {
    if (s.size() == 1 && s[0].IsName()) Use("ExtGState", s[0].text);
    ContentHandler::SetDeviceDependentGraphicsState(s);
}

void ResourceUseHandler::SetColorFillN(OperandStack& s) {
    if (!s.empty() && s.back().IsName()) Use("Pattern", s.back().text);
    ContentHandler::SetColorFillN(s);
}

void ResourceUseHandler::SetColorStrokeN(OperandStack& s) {
    if (!s.empty() && s.back().IsName()) Use("Pattern", s.back().text);
    ContentHandler::SetColorStrokeN(s);
}

void ResourceUseHandler::SetColorSpaceFill(OperandStack& s) {
    if (s.size() == 1 && s[0].IsName()) UseColorSpace(s[0].text);
    ContentHandler::SetColorSpaceFill(s);
}

void ResourceUseHandler::SetColorSpaceStroke(OperandStack& s) {
    if (s.size() == 1 && s[0].IsName()) UseColorSpace(s[0].text);
    ContentHandler::SetColorSpaceStroke(s);
}

void ResourceUseHandler::SetShadedFill(OperandStack& s) {
    if (s.size() == 1 && s[0].IsName()) Use("Shading", s[0].text);
    ContentHandler::SetShadedFill(s);
}

void ResourceUseHandler::SetTextFontAndSize(OperandStack& s) {
    if (s.size() == 2 && s[0].IsName()) Use("Font", s[0].text);
    ContentHandler::SetTextFontAndSize(s);
}

void ResourceUseHandler::BeginMarkedContentProps(OperandStack& s) {
    if (s.size() == 2 && s[1].IsName()) Use("Properties", s[1].text);
    ContentHandler::BeginMarkedContentProps(s);
}

void ResourceUseHandler::MarkPointProps(OperandStack& s) {
    if (s.size() == 2 && s[1].IsName()) Use("Properties", s[1].text);
    ContentHandler::MarkPointProps(s);
}

void ResourceUseHandler::ExecuteXObject(OperandStack& s) {
    if (s.size() == 1 && s[0].IsName()) Use("XObject", s[0].text);
    ContentHandler::ExecuteXObject(s);
}

void ResourceUseHandler::EndImage(OperandStack& s) {
    // An inline image may name a colour space resource (and, for an
    // indexed space, its base) in the page's ColorSpace category.
    for (size_t i = 0; i + 1 < s.size(); i += 2) {
        if (!s[i].IsName("CS") && !s[i].IsName("ColorSpace")) continue;
        const ContentToken& v = s[i + 1];
        if (v.IsName()) UseColorSpace(v.text);
        if (v.IsArray() && v.elements.size() > 1 && v.elements[1].IsName())
            UseColorSpace(v.elements[1].text);
    }
    ContentHandler::EndImage(s);
}

ResourceNames PageResourceUse(CosObj page, Log* log) {
    ResourceUseHandler h(log, false);
    h.RunPage(page);
    return h.UsedIn(h.Resources());
}
