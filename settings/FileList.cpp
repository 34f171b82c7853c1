// Reading file lists and turning page ranges into page numbers.
#include "settings/FileList.h"

#include <charconv>
#include <stdexcept>

#include "base/Log.h"

namespace {

std::string Strip(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r\n\v");
    if (b == std::string::npos) return std::string();
    size_t e = s.find_last_not_of(" \t\r\n\v");
    return s.substr(b, e - b + 1);
}

ASInt32 PageNumber(const std::string& piece, const std::string& text) {
    std::string s = Strip(text);
    ASInt32 v = 0;
    auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (s.empty() || r.ec != std::errc() || r.ptr != s.data() + s.size() || v < 0)
        throw std::runtime_error("bad page range '" + piece + "'");
    return v;
}

}  // namespace

std::vector<FileListPageRange> ParsePageRange(const std::string& text) {
    std::vector<FileListPageRange> out;
    size_t pos = 0;
    while (pos <= text.size()) {
        size_t comma = text.find(',', pos);
        std::string piece = text.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
        pos = comma == std::string::npos ? text.size() + 1 : comma + 1;
        if (Strip(piece).empty()) continue;  // "1,,3" and a trailing comma mean nothing more
        size_t dash = piece.find('-');
        FileListPageRange r;
        if (dash == std::string::npos) {
            r.from = r.to = PageNumber(piece, piece);
        } else {
            r.from = PageNumber(piece, piece.substr(0, dash));
            std::string rest = Strip(piece.substr(dash + 1));
            r.to = rest.empty() ? -1 : PageNumber(piece, rest);
        }
        out.push_back(r);
    }
    return out;
}

std::vector<ASInt32> SelectPages(const std::vector<FileListPageRange>& ranges, FileListRangeType type,
                                 ASInt32 pageCount) {
    std::vector<ASInt32> pages;
    if (pageCount <= 0) return pages;
    auto take = [&](ASInt32 oneBased) {
        if (oneBased < 1 || oneBased > pageCount) return;
        if (type == kRangeEven && oneBased % 2 != 0) return;
        if (type == kRangeOdd && oneBased % 2 == 0) return;
        pages.push_back(oneBased - 1);
    };
    for (const FileListPageRange& r : ranges) {
        // 0 reads as the first page; an open end runs to the last page; ends
        // past the last page are clipped to it.
        ASInt32 from = r.from < 1 ? 1 : r.from;
        ASInt32 to = r.to < 0 ? pageCount : (r.to < 1 ? 1 : r.to);
        if (from > pageCount && (r.to < 0 || to > pageCount)) continue;
        if (from > pageCount) from = pageCount;
        if (to > pageCount) to = pageCount;
        if (from <= to)
            for (ASInt32 p = from; p <= to; ++p) take(p);
        else
            for (ASInt32 p = from; p >= to; --p) take(p);
    }
    return pages;
}

void ApplyFileList(const domLite::document& doc, FileList& list) {
    domLite::node_ptr root = doc.root();
    if (!root || root->name() != "trimFileList") return;
    list.merge = root->attribute("merge") == "true";
    if (root->has_attribute("outputDir")) list.outputDir = root->attribute("outputDir");
    for (const domLite::node_ptr& c : root->children()) {
        if (c->name() != "file") continue;
        FileListEntry e;
        if (c->has_attribute("src")) e.src = c->attribute("src");
        if (c->has_attribute("pageRange")) e.ranges = ParsePageRange(c->attribute("pageRange"));
        if (c->has_attribute("rangeType")) {
            const std::string t = c->attribute("rangeType");
            if (t == "all")
                e.rangeType = kRangeAll;
            else if (t == "even")
                e.rangeType = kRangeEven;
            else if (t == "odd")
                e.rangeType = kRangeOdd;
        }
        if (c->has_attribute("box")) e.box = c->attribute("box");
        if (c->has_attribute("password")) e.password = c->attribute("password");
        if (c->has_attribute("output")) e.output = c->attribute("output");
        list.entries.push_back(std::move(e));
    }
}

bool ReadFileList(const std::string& path, FileList& list, Log& log) {
    try {
        domLite::parser p;
        FileList read;
        ApplyFileList(p.parse_file(path), read);
        list = std::move(read);
    } catch (const std::exception& e) {
        log.Error("An error ('%s') occured while reading the file list\n", e.what());
        return false;
    }
    return true;
}
